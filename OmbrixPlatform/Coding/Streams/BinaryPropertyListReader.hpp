#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/Codable.hpp"
#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListView.hpp"

namespace ombrix::platform {

/// Reads a binary property list in one go, in the manner of `CodingReader`.
///
/// Borrows the bytes and the user info. Operations throw `DecodingError`, and `PropertyListError`
/// where the file is damaged; `PropertyListDecoder` makes one of both. One thread.
class BinaryPropertyListReader {
 public:
  explicit BinaryPropertyListReader(DataView bytes, const CodingUserInfo* userInfo = nullptr);

  bool readNull();
  bool readBool();
  std::int64_t readInteger();
  std::uint64_t readUnsignedInteger();
  double readReal();
  std::string_view readText();
  Data readData();
  Date readDate();
  /// Any value, as a tree.
  PropertyList readPropertyList();

  /// Where an array or object has begun: says how much memory each of its items will take, and
  /// gives their number. Items that are more than the file accounts for end the reading here.
  std::size_t expectItems(std::size_t bytesEach);

  void beginObject() { begin(View::Kind::dictionary); }
  bool nextKey(std::string_view& key);
  void beginArray() { begin(View::Kind::array); }
  bool nextItem();
  void skip() {}
  std::optional<std::string> peekText(std::string_view key);
  std::shared_ptr<Decoder> decoder();

  [[nodiscard]] CodingPathChain& pathChain() noexcept { return path_; }
  [[nodiscard]] CodingPath codingPath() const { return path_.path(); }

 private:
  using View = BinaryPropertyListView;

  struct Frame {
    View::Object container;
    std::uint64_t next;
  };

  View::Object object();
  std::string_view text(const View::Object& object);
  void begin(View::Kind kind);
  PropertyList tree(std::uint64_t index, int depth);
  [[noreturn]] static void mismatch(std::string_view expected, const View::Object& object,
                                    const CodingPath& path);
  [[noreturn]] void mismatch(std::string_view expected, const View::Object& object) const {
    mismatch(expected, object, codingPath());
  }
  [[noreturn]] void misfit() const;

  const CodingUserInfo* userInfo_;
  View view_;
  View::Allowance allowance_;
  std::uint64_t current_;  // the number of the object that comes next
  std::vector<Frame> frames_;
  std::string scratch_;
  CodingPathChain path_;
};

}  // namespace ombrix::platform
