#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/Codable.hpp"
#include "OmbrixPlatform/Coding/OrderedDictionary.hpp"
#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListView.hpp"

namespace ombrix::platform {

/// Reads a binary property list in one go, in the manner of `CodingReader`.
///
/// Borrows the bytes and the user info. Operations throw `DecodingError`, and `PropertyListError`
/// where the file is damaged; `PropertyListDecoder` makes one of both. One thread.
class BinaryPropertyListReader {
 public:
  struct Document;

  explicit BinaryPropertyListReader(DataView bytes, const CodingUserInfo* userInfo = nullptr);
  /// Reads one object of a document, to which the path leads. Borrows the document, and uses up of
  /// its allowance.
  BinaryPropertyListReader(const Document& document, std::uint64_t object, const CodingPath& path);
  BinaryPropertyListReader(const BinaryPropertyListReader&) = delete;
  BinaryPropertyListReader& operator=(const BinaryPropertyListReader&) = delete;

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
  /// What it gives shares a copy of the whole file.
  std::shared_ptr<Decoder> decoder();
  [[noreturn]] void startOver() const;

  /// The numbers of the values that the next object holds.
  OrderedDictionary<std::uint64_t> entries();
  std::vector<std::uint64_t> items();

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

  DataView bytes_;
  const CodingUserInfo* userInfo_;
  View view_;
  View::Allowance ownAllowance_;
  View::Allowance& allowance_ = ownAllowance_;
  std::uint64_t current_;  // the number of the object that comes next
  std::vector<Frame> frames_;
  std::string scratch_;
  CodingPathChain path_;
  std::shared_ptr<const Document> document_;  // a copy, once there is a decoder
};

/// A binary property list for those who go to and fro in it. Reading changes its allowance: one
/// thread.
struct BinaryPropertyListReader::Document {
  Document(DataView file, const CodingUserInfo& userInfo)
      : bytes(file.begin(), file.end()),
        view(bytes),
        // By way of what leads there, itself, and what it is taken for.
        allowance(bytes.size(), 3 * view.objectCount()),
        info(userInfo) {}

  [[nodiscard]] const CodingUserInfo& userInfo() const noexcept { return info; }

  Data bytes;
  BinaryPropertyListView view;
  mutable BinaryPropertyListView::Allowance allowance;
  CodingUserInfo info;
};

}  // namespace ombrix::platform
