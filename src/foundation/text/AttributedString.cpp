#include "foundation/text/AttributedString.h"

#include <algorithm>

#include "foundation/text/TextEncoding.h"

namespace qva {

namespace {

// How many of the latest attribute sets a new run is compared with before it gets a set of its own.
constexpr std::size_t kSharedSetSearch = 16;

}  // namespace

AttributedString::AttributedString(std::u16string text, const TextAttributes& attributes) {
  append(text, attributes);
}

AttributedString AttributedString::fromUtf8(std::string_view text, const TextAttributes& attributes) {
  return AttributedString(TextEncoding::utf16FromUtf8(text), attributes);
}

std::string AttributedString::utf8() const {
  return TextEncoding::utf8FromUtf16(text_);
}

std::vector<AttributedString::Run> AttributedString::runs() const {
  std::vector<Run> runs;
  runs.reserve(spans_.size());
  for (const Span& span : spans_) {
    runs.push_back(Run{span.location, span.length, attributeSets_[span.attributes]});
  }
  return runs;
}

const TextAttributes& AttributedString::attributesAt(std::size_t index) const {
  auto span = std::upper_bound(spans_.begin(), spans_.end(), index,
                               [](std::size_t value, const Span& s) { return value < s.location; });
  return attributeSets_[std::prev(span)->attributes];
}

std::uint32_t AttributedString::attributeIndex(const TextAttributes& attributes) {
  std::size_t searched = 0;
  for (auto set = attributeSets_.rbegin(); set != attributeSets_.rend() && searched < kSharedSetSearch;
       ++set, ++searched) {
    if (*set == attributes) {
      return static_cast<std::uint32_t>(attributeSets_.rend() - set - 1);
    }
  }
  attributeSets_.push_back(attributes);
  return static_cast<std::uint32_t>(attributeSets_.size() - 1);
}

void AttributedString::appendSpan(std::size_t length, const TextAttributes& attributes) {
  if (length == 0) {
    return;
  }
  if (!spans_.empty() && attributeSets_[spans_.back().attributes] == attributes) {
    spans_.back().length += length;
  } else {
    spans_.push_back(Span{text_.size() - length, length, attributeIndex(attributes)});
  }
}

void AttributedString::append(std::u16string_view text, const TextAttributes& attributes) {
  text_.append(text);
  appendSpan(text.size(), attributes);
}

void AttributedString::append(const AttributedString& other) {
  for (const Span& span : other.spans_) {
    append(std::u16string_view(other.text_).substr(span.location, span.length),
           other.attributeSets_[span.attributes]);
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
  for (const Span& span : spans_) {
    std::size_t start = std::max(span.location, location);
    std::size_t stop = std::min(span.location + span.length, end);
    if (start < stop) {
      result.append(std::u16string_view(text_).substr(start, stop - start), attributeSets_[span.attributes]);
    }
  }
  return result;
}

bool AttributedString::operator==(const AttributedString& other) const {
  if (text_ != other.text_ || spans_.size() != other.spans_.size()) {
    return false;
  }
  for (std::size_t i = 0; i < spans_.size(); ++i) {
    const Span& a = spans_[i];
    const Span& b = other.spans_[i];
    if (a.location != b.location || a.length != b.length ||
        attributeSets_[a.attributes] != other.attributeSets_[b.attributes]) {
      return false;
    }
  }
  return true;
}

}  // namespace qva
