#pragma once

#include "renderkit/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace renderkit {

/// A reader of ZIP archives that lie in memory: STORE and DEFLATE, no ZIP64, no encryption.
/// The CRC of an entry is not verified on purpose: its size is the only test.
class ZipArchive {
 public:
  struct Entry {
    std::uint16_t method = 0;
    std::int64_t compressedSize = 0;
    std::int64_t uncompressedSize = 0;
    std::int64_t localHeaderOffset = 0;
  };

  /// Reads the directory. Of entries with the same name the last wins; one whose name is
  /// not UTF-8 is passed over. Throws ZipError.
  static ZipArchive open(Bytes data);

  /// The entry's uncompressed bytes; those of a stored one are a slice of the archive. Throws ZipError.
  Bytes read(const std::string& name) const;

  std::vector<std::string> names() const;
  bool contains(const std::string& name) const { return entries_.contains(name); }
  const std::map<std::string, Entry>& entries() const { return entries_; }

 private:
  explicit ZipArchive(Bytes data) : data_(std::move(data)) {}
  void readDirectory();
  std::size_t endOfCentralDirectory() const;
  /// Reads the record at an offset and gives that of the next.
  std::size_t readRecord(std::size_t offset);
  Bytes payload(const std::string& name, const Entry& entry) const;
  std::uint32_t u32(std::size_t offset) const;
  std::uint16_t u16(std::size_t offset) const;

  Bytes data_;
  std::map<std::string, Entry> entries_;
};

}  // namespace renderkit
