#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/text/TextAttributes.h"

namespace qva {

// Text as UTF-16 code units with attribute runs. Locations and lengths count code units. Runs cover
// the text without gaps, and neighbouring runs always differ in their attributes. Runs share their
// attribute sets, so that long documents with few distinct formats stay small.
class AttributedString {
 public:
  struct Run {
    std::size_t location = 0;
    std::size_t length = 0;
    const TextAttributes& attributes;
  };

  AttributedString() = default;
  explicit AttributedString(std::u16string text, const TextAttributes& attributes = {});
  static AttributedString fromUtf8(std::string_view text, const TextAttributes& attributes = {});

  const std::u16string& text() const { return text_; }
  std::string utf8() const;
  std::size_t length() const { return text_.size(); }
  bool empty() const { return text_.empty(); }
  // The runs in text order; they refer into this string and are valid until it changes.
  std::vector<Run> runs() const;

  // The attributes of the character at index; index must be below length().
  const TextAttributes& attributesAt(std::size_t index) const;

  void append(std::u16string_view text, const TextAttributes& attributes);
  void append(const AttributedString& other);
  // Replaces the characters in the range (cut to the text) with other, keeping other's attributes.
  void replace(std::size_t location, std::size_t length, const AttributedString& other);
  // The characters in the range (cut to the text) with their attributes.
  AttributedString substring(std::size_t location, std::size_t length) const;

  bool operator==(const AttributedString& other) const;

 private:
  struct Span {
    std::size_t location;
    std::size_t length;
    std::uint32_t attributes;
  };

  std::uint32_t attributeIndex(const TextAttributes& attributes);
  void appendSpan(std::size_t length, const TextAttributes& attributes);

  std::u16string text_;
  std::vector<Span> spans_;
  std::vector<TextAttributes> attributeSets_;
};

}  // namespace qva
