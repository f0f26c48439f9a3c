#include "OmbrixPlatform/Coding/CodingError.hpp"

#include "OmbrixPlatform/Coding/Codable.hpp"

#include <fmt/format.h>

#include <charconv>

namespace ombrix::platform {
namespace {

std::string where(const CodingPath& path) {
  return path.empty() ? "at the top" : fmt::format("at \"{}\"", describe(path));
}

}  // namespace

std::string describe(const CodingPath& path) {
  std::string text;
  for (const CodingKey& key : path) {
    if (key.intValue) {
      text += fmt::format("[{}]", *key.intValue);
      continue;
    }
    if (!text.empty()) text += '.';
    // Like texts, keys of a document may be secrets of its owner.
    text += key.isContent ? fmt::format("(a key of {} bytes)", key.stringValue.size())
                          : key.stringValue;
  }
  return text;
}

std::string detail::textByLength(std::string_view text) {
  return fmt::format("a text of {} bytes", text.size());
}

double detail::decimalDouble(float value) {
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text, value).ptr;
  double result = value;
  std::from_chars(text, end, result);
  return result;
}

CodingPath CodingPathChain::path() const {
  CodingPath steps;
  for (const Step* step = last_; step != nullptr; step = step->outer_) {
    if (step->key_.data() != nullptr) {
      steps.push_back({std::string{step->key_}, std::nullopt, step->isContent_});
    } else if (step->index_ != Step::kNowhere) {
      steps.push_back({fmt::format("Index {}", step->index_), step->index_});
    }
  }
  CodingPath path = base_;
  path.insert(path.end(), steps.rbegin(), steps.rend());
  return path;
}

DecodingError DecodingError::keyNotFound(std::string_view key, CodingPath path) {
  const std::string message = fmt::format("The key \"{}\" is missing {}.", key, where(path));
  return {Kind::keyNotFound, message, std::move(path)};
}

DecodingError DecodingError::typeMismatch(std::string_view expected, std::string_view found,
                                          CodingPath path) {
  const std::string message =
      fmt::format("Expected {}, but found {} {}.", expected, found, where(path));
  return {Kind::typeMismatch, message, std::move(path)};
}

DecodingError DecodingError::valueNotFound(std::string_view expected, CodingPath path) {
  const std::string message =
      fmt::format("Expected {}, but found no value {}.", expected, where(path));
  return {Kind::valueNotFound, message, std::move(path)};
}

DecodingError DecodingError::dataCorrupted(std::string_view what, CodingPath path) {
  const std::string message = fmt::format("{} {}.", what, where(path));
  return {Kind::dataCorrupted, message, std::move(path)};
}

DecodingError DecodingError::tooLarge(std::string_view what, CodingPath path) {
  const std::string message = fmt::format("{} {}.", what, where(path));
  return {Kind::tooLarge, message, std::move(path)};
}

EncodingError EncodingError::invalidValue(std::string_view what, CodingPath path) {
  const std::string message = fmt::format("{} {}.", what, where(path));
  return {message, std::move(path)};
}

}  // namespace ombrix::platform
