#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>

namespace ombrix::testing {

/// Builds a FIT file message by message.
class FITBytes {
 public:
  struct Field {
    std::uint8_t number, size, type;
  };

  explicit FITBytes(bool isBigEndian) : isBigEndian_(isBigEndian) {}

  void define(unsigned local, std::uint16_t message, std::initializer_list<Field> fields,
              std::uint8_t developerBytes = 0) {
    put((developerBytes > 0 ? 0x60U : 0x40U) | local, 1).put(0, 1).put(isBigEndian_ ? 1 : 0, 1);
    put(message, 2).put(static_cast<std::uint32_t>(fields.size()), 1);
    for (const Field& field : fields) put(field.number, 1).put(field.size, 1).put(field.type, 1);
    if (developerBytes > 0) put(1, 1).put(0, 1).put(developerBytes, 1).put(0, 1);
  }
  FITBytes& message(unsigned local) { return put(local, 1); }
  FITBytes& compressed(unsigned local, unsigned seconds) {
    return put(0x80U | local << 5 | seconds, 1);
  }
  FITBytes& put(std::uint32_t value, unsigned size) {
    data_ += digits(value, size, isBigEndian_);
    return *this;
  }

  [[nodiscard]] std::string bytes() const {
    std::string file = std::string("\x0E\x20\x00\x08", 4) +
                       digits(static_cast<std::uint32_t>(data_.size()), 4, false) + ".FIT";
    file += digits(checksum(file), 2, false) + data_;
    return file + digits(checksum(file), 2, false);
  }

 private:
  static std::string digits(std::uint32_t value, unsigned size, bool isBigEndian) {
    std::string out;
    for (unsigned i = 0; i < size; ++i) {
      out += static_cast<char>(value >> 8 * (isBigEndian ? size - 1 - i : i));
    }
    return out;
  }

  /// CRC-16/ARC bit by bit, as the polynomial defines it.
  static std::uint16_t checksum(const std::string& bytes) {
    unsigned sum = 0;
    for (const char byte : bytes) {
      sum ^= static_cast<unsigned char>(byte);
      for (int bit = 0; bit < 8; ++bit) sum = (sum & 1) != 0 ? sum >> 1 ^ 0xA001 : sum >> 1;
    }
    return static_cast<std::uint16_t>(sum);
  }

  bool isBigEndian_;
  std::string data_;
};

}  // namespace ombrix::testing
