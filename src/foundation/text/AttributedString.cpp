#include "foundation/text/AttributedString.h"

#include <algorithm>

#include "foundation/text/TextEncoding.h"

namespace qva {

AttributedString::AttributedString(std::u16string text, const TextAttributes& attributes)
    : text_(std::move(text)) {
  if (!text_.empty()) {
    runs_.push_back(Run{0, text_.size(), attributes});
  }
}

AttributedString AttributedString::fromUtf8(std::string_view text, const TextAttributes& attributes) {
  return AttributedString(TextEncoding::utf16FromUtf8(text), attributes);
}

std::string AttributedString::utf8() const {
  return TextEncoding::utf8FromUtf16(text_);
}

const TextAttributes& AttributedString::attributesAt(std::size_t index) const {
  auto run = std::upper_bound(runs_.begin(), runs_.end(), index,
                              [](std::size_t value, const Run& r) { return value < r.location; });
  return std::prev(run)->attributes;
}

void AttributedString::appendRun(std::size_t length, const TextAttributes& attributes) {
  if (length == 0) {
    return;
  }
  if (!runs_.empty() && runs_.back().attributes == attributes) {
    runs_.back().length += length;
  } else {
    runs_.push_back(Run{text_.size() - length, length, attributes});
  }
}

void AttributedString::append(std::u16string_view text, const TextAttributes& attributes) {
  text_.append(text);
  appendRun(text.size(), attributes);
}

void AttributedString::append(const AttributedString& other) {
  for (const Run& run : other.runs_) {
    append(std::u16string_view(other.text_).substr(run.location, run.length), run.attributes);
  }
}

void AttributedString::replace(std::size_t location, std::size_t length, const AttributedString& other) {
  location = std::min(location, text_.size());
  length = std::min(length, text_.size() - location);
  AttributedString result = substring(0, location);
  result.append(other);
  result.append(substring(location + length, text_.size() - location - length));
  *this = std::move(result);
}

AttributedString AttributedString::substring(std::size_t location, std::size_t length) const {
  location = std::min(location, text_.size());
  std::size_t end = location + std::min(length, text_.size() - location);
  AttributedString result;
  for (const Run& run : runs_) {
    std::size_t start = std::max(run.location, location);
    std::size_t stop = std::min(run.location + run.length, end);
    if (start < stop) {
      result.append(std::u16string_view(text_).substr(start, stop - start), run.attributes);
    }
  }
  return result;
}

}  // namespace qva
