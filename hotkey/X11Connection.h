#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace hotkey {

struct FreeAllocated {
    void operator()(void *allocated) const { std::free(allocated); }
};
template <typename T>
using CPointer = std::unique_ptr<T, FreeAllocated>;

template <typename T>
CPointer<T> owned(T *allocated) {
    return CPointer<T>(allocated);
}

struct Disconnect {
    void operator()(xcb_connection_t *connection) const { xcb_disconnect(connection); }
};
using Connection = std::unique_ptr<xcb_connection_t, Disconnect>;

/// Uses the keyboard extension on this connection and asks for notices of a changed keyboard. Returns the
/// first event number of the extension, 0 if it is not there.
std::uint8_t startXkb(xcb_connection_t *connection);

/// Switches the connection to detectable auto-repeat, so that a held key has one release. After startXkb.
bool detectAutoRepeat(xcb_connection_t *connection);

/// The number of the keyboard layout in force now, counted from 0; 0 as well if the connection is lost. After
/// startXkb.
std::uint8_t layoutGroup(xcb_connection_t *connection);

}  // namespace hotkey
