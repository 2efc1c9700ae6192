#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "FTPManager/FTPTransport.h"

namespace fm {

/// Whether a line, without its end, has at most 253 bytes, no control character and no byte 0xFF.
bool isSendableLine(std::string_view line);

/// The lines, each without its end, that do one command after a login; without a command they log in and
/// out. Nothing if a line cannot be sent.
std::optional<std::vector<std::string>> controlLines(const std::string &user, const std::string &password,
                                                     const std::optional<std::string> &folder,
                                                     const std::optional<std::string> &command);

/// Whether no line of the answers begins with "4" or "5". The pieces in which they were read count as lines.
bool _checkAnswers(std::string_view answers);

/// Everything that the other side says until it closes, each piece as it came behind a line break. A piece
/// that is not UTF-8 counts as "(null)". Logs a line when reading fails; what was read before that is
/// returned. Nothing if the other side fell silent for longer than `idleTimeout`, or talks for longer than
/// `wholeTimeout` or without measure, and has not said goodbye; nor, without a line, if `cancelled` is
/// requested first.
std::optional<std::string> _listenLoopForSocket(int socket, std::chrono::milliseconds idleTimeout,
                                                std::chrono::milliseconds wholeTimeout,
                                                const std::stop_token &cancelled = {});

/// Connects to the host over IPv4, sends all lines at once and judges the answers. Nothing if the lines could
/// not be sent, with a log line if there was no connection, and, without one, if `cancelled` is requested
/// first. Blocks the calling thread, within the limits.
std::optional<bool> runControlLines(const std::string &host, std::uint16_t port,
                                    const std::vector<std::string> &lines, const TransportLimits &limits,
                                    const std::stop_token &cancelled = {});

}  // namespace fm
