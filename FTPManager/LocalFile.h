#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace fm {

/// In bytes; 0 if it cannot be had.
std::uint64_t sizeOfFile(const std::filesystem::path &file);

/// Bytes to be read piece by piece.
class ByteReader {
  public:
    virtual ~ByteReader() = default;
    /// How many bytes were copied into the room; 0 at the end, nothing if they cannot be read.
    virtual std::optional<std::size_t> read(std::span<char> room) = 0;
};

/// Bytes in memory, which must outlive it.
class DataReader : public ByteReader {
  public:
    explicit DataReader(std::string_view data) : rest_(data) {}
    std::optional<std::size_t> read(std::span<char> room) override;

  private:
    std::string_view rest_;
};

/// A file descriptor that is closed with it.
class Descriptor {
  public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor();
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int number() const { return number_; }
    /// False if the system could not keep what was written.
    bool closeNow();

  private:
    int number_;
};

class FileReader : public ByteReader {
  public:
    /// Null unless it is a file with a content of its own (no folder, pipe or device) that may be read.
    static std::unique_ptr<FileReader> open(const std::filesystem::path &file);
    std::optional<std::size_t> read(std::span<char> room) override;

  private:
    explicit FileReader(int descriptor) : descriptor_(descriptor) {}
    Descriptor descriptor_;
};

class FileWriter {
  public:
    /// An empty file in the place of the one that is there. Null if that cannot be had.
    static std::unique_ptr<FileWriter> open(const std::filesystem::path &file);
    /// How many bytes it took, perhaps not all; 0 or -1 if it takes none.
    std::ptrdiff_t write(std::string_view bytes);
    bool close() { return descriptor_.closeNow(); }

  private:
    explicit FileWriter(int descriptor) : descriptor_(descriptor) {}
    Descriptor descriptor_;
};

}  // namespace fm
