#include "foundation/documents/HtmlReader.h"

#include <libxml/HTMLparser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/encodings/StringEncodings.h"
#include "foundation/text/TextEncoding.h"
#include "framework/StringCase.h"

namespace qva {

namespace {

constexpr double kBaseFontSize = 12;

bool isOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool isBlock(std::string_view name) {
  return isOneOf(name, {"p",     "div",   "h1",     "h2",      "h3",      "h4",       "h5",      "h6",
                        "li",    "ul",    "ol",     "dl",      "dt",      "dd",       "pre",     "blockquote",
                        "table", "tr",    "center", "section", "article", "header",   "footer",  "address",
                        "nav",   "aside", "form",   "figure",  "main",    "fieldset", "caption", "body"});
}

// Elements whose content is never shown.
bool isHidden(std::string_view name) {
  return isOneOf(name, {"head", "script", "style", "title", "noscript", "template", "object", "iframe"});
}

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

std::optional<std::string> attribute(const xmlNode* node, const char* name) {
  xmlChar* value = xmlGetProp(node, reinterpret_cast<const xmlChar*>(name));
  if (value == nullptr) {
    return std::nullopt;
  }
  std::string result(reinterpret_cast<const char*>(value));
  xmlFree(value);
  return result;
}

// "#rgb", "#rrggbb" or one of the sixteen HTML colour names (and orange).
std::optional<Color> parseColor(std::string_view text) {
  const std::string value = asciiLowercased(text);
  if (!value.empty() && value[0] == '#') {
    unsigned rgb = 0;
    const std::string_view digits = std::string_view(value).substr(1);
    if (std::from_chars(digits.data(), digits.data() + digits.size(), rgb, 16).ptr !=
        digits.data() + digits.size()) {
      return std::nullopt;
    }
    if (digits.size() == 3) {
      return Color{((rgb >> 8) & 0xF) / 15.0, ((rgb >> 4) & 0xF) / 15.0, (rgb & 0xF) / 15.0, 1};
    }
    if (digits.size() == 6) {
      return Color{((rgb >> 16) & 0xFF) / 255.0, ((rgb >> 8) & 0xFF) / 255.0, (rgb & 0xFF) / 255.0, 1};
    }
    return std::nullopt;
  }
  struct Named {
    std::string_view name;
    unsigned rgb;
  };
  static constexpr std::array<Named, 19> kNames{{{"black", 0x000000},
                                                 {"silver", 0xC0C0C0},
                                                 {"gray", 0x808080},
                                                 {"grey", 0x808080},
                                                 {"white", 0xFFFFFF},
                                                 {"maroon", 0x800000},
                                                 {"red", 0xFF0000},
                                                 {"purple", 0x800080},
                                                 {"fuchsia", 0xFF00FF},
                                                 {"magenta", 0xFF00FF},
                                                 {"green", 0x008000},
                                                 {"lime", 0x00FF00},
                                                 {"olive", 0x808000},
                                                 {"yellow", 0xFFFF00},
                                                 {"navy", 0x000080},
                                                 {"blue", 0x0000FF},
                                                 {"teal", 0x008080},
                                                 {"aqua", 0x00FFFF},
                                                 {"orange", 0xFFA500}}};
  for (const Named& named : kNames) {
    if (named.name == value) {
      return Color{(named.rgb >> 16) / 255.0, ((named.rgb >> 8) & 0xFF) / 255.0, (named.rgb & 0xFF) / 255.0,
                   1};
    }
  }
  return std::nullopt;
}

// The point size of <font size>: 1 to 7, or relative to 3 with a sign.
std::optional<double> fontSize(std::string_view text) {
  int size = 0;
  const bool relative = !text.empty() && (text[0] == '+' || text[0] == '-');
  const std::string_view digits = text.substr(!text.empty() && text[0] == '+' ? 1 : 0);
  if (std::from_chars(digits.data(), digits.data() + digits.size(), size).ec != std::errc()) {
    return std::nullopt;
  }
  size = std::clamp(relative ? 3 + size : size, 1, 7);
  static constexpr std::array<double, 7> kScale{10.0 / 16, 13.0 / 16, 1, 18.0 / 16, 24.0 / 16, 2, 3};
  return kBaseFontSize * kScale[static_cast<std::size_t>(size - 1)];
}

// Where the parser should take the text encoding from: the document's own declaration, or else the
// bytes decoded as the system guesses plain text (UTF-8, or Windows Latin 1).
struct PreparedBytes {
  std::string bytes;
  const char* encoding = nullptr;
};

PreparedBytes prepare(std::string_view html) {
  const std::string head = asciiLowercased(html.substr(0, 2048));
  if (head.find("charset") != std::string::npos || head.find("encoding=") != std::string::npos) {
    return {std::string(html), nullptr};
  }
  if (auto text = StringEncodings::decodeDetected(html)) {
    return {std::move(*text), "UTF-8"};
  }
  return {std::string(html), nullptr};
}

class TextBuilder {
 public:
  struct State {
    TextAttributes attributes;
    bool preformatted = false;
    bool orderedList = false;
    int listItems = 0;
  };

  explicit TextBuilder(const TextAttributes& base) { states_.push_back(State{base}); }

  void walk(xmlNode* root) {
    xmlNode* node = root;
    while (node != nullptr) {
      const bool entered = enter(node);
      if (entered && node->children != nullptr) {
        node = node->children;
        continue;
      }
      if (entered) {
        leave(node);
      }
      while (node != root && node->next == nullptr) {
        node = node->parent;
        leave(node);
      }
      if (node == root) {
        break;
      }
      node = node->next;
    }
  }

  AttributedString finish() {
    while (!text_.empty() && (text_.text().back() == u'\n' || text_.text().back() == u'\u2028')) {
      text_.replace(text_.length() - 1, 1, AttributedString());
    }
    return std::move(text_);
  }

 private:
  // True when the node is an element whose children are to be visited; leave() then follows.
  bool enter(xmlNode* node) {
    if (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) {
      if (node->content != nullptr) {
        appendText(reinterpret_cast<const char*>(node->content));
      }
      return false;
    }
    if (node->type != XML_ELEMENT_NODE || node->name == nullptr) {
      return false;
    }
    const std::string name = asciiLowercased(reinterpret_cast<const char*>(node->name));
    if (isHidden(name)) {
      return false;
    }
    if (name == "br") {
      appendBreak(u'\u2028');
      return false;
    }
    if (name == "hr") {
      paragraphBreak();
      return false;
    }
    State& parent = states_.back();
    State state = parent;
    if (isBlock(name)) {
      paragraphBreak();
    }
    applyElement(name, node, parent, state);
    states_.push_back(std::move(state));
    return true;
  }

  void leave(xmlNode* node) {
    if (node->type != XML_ELEMENT_NODE || states_.size() <= 1) {
      return;
    }
    if (isBlock(asciiLowercased(reinterpret_cast<const char*>(node->name)))) {
      paragraphBreak();
    }
    states_.pop_back();
  }

  void applyElement(const std::string& name, const xmlNode* node, State& parent, State& state) {
    TextAttributes& a = state.attributes;
    if (name == "b" || name == "strong") {
      a.font.bold = true;
    } else if (isOneOf(name, {"i", "em", "cite", "var", "dfn"})) {
      a.font.italic = true;
    } else if (name == "u" || name == "ins") {
      a.underlineStyle = TextStyleMask::Single;
    } else if (isOneOf(name, {"s", "strike", "del"})) {
      a.strikethroughStyle = TextStyleMask::Single;
    } else if (name == "sup") {
      a.superscript = 1;
    } else if (name == "sub") {
      a.superscript = -1;
    } else if (isOneOf(name, {"pre", "code", "tt", "kbd", "samp"})) {
      a.font.family = "Courier";
      state.preformatted = state.preformatted || name == "pre";
    } else if (name.size() == 2 && name[0] == 'h' && name[1] >= '1' && name[1] <= '6') {
      static constexpr std::array<double, 6> kHeadingScale{2, 1.5, 1.17, 1, 0.83, 0.67};
      a.font.bold = true;
      a.font.pointSize = kBaseFontSize * kHeadingScale[static_cast<std::size_t>(name[1] - '1')];
    } else if (name == "font") {
      if (auto color = attribute(node, "color")) {
        a.foregroundColor = parseColor(*color).value_or(a.foregroundColor);
      }
      if (auto size = attribute(node, "size")) {
        a.font.pointSize = fontSize(*size).value_or(a.font.pointSize);
      }
      if (auto face = attribute(node, "face")) {
        std::string family = face->substr(0, face->find(','));
        family.erase(0, family.find_first_not_of(" \"'"));
        family.erase(family.find_last_not_of(" \"'") + 1);
        if (!family.empty()) {
          a.font.family = family;
        }
      }
    } else if (name == "center") {
      a.paragraphStyle.alignment = TextAlignment::Center;
    } else if (name == "ul" || name == "ol") {
      state.orderedList = name == "ol";
      state.listItems = 0;
    } else if (name == "li") {
      ++parent.listItems;
      appendText(parent.orderedList ? std::to_string(parent.listItems) + ".\t" : "\xE2\x80\xA2\t", true);
    }
    if (auto align = attribute(node, "align"); align && isBlock(name)) {
      const std::string value = asciiLowercased(*align);
      if (value == "left") {
        a.paragraphStyle.alignment = TextAlignment::Left;
      } else if (value == "center") {
        a.paragraphStyle.alignment = TextAlignment::Center;
      } else if (value == "right") {
        a.paragraphStyle.alignment = TextAlignment::Right;
      } else if (value == "justify") {
        a.paragraphStyle.alignment = TextAlignment::Justified;
      }
    }
  }

  // Text of a text node: whitespace collapses to single spaces outside preformatted text.
  void appendText(std::string_view utf8, bool verbatim = false) {
    const State& state = states_.back();
    if (state.preformatted || verbatim) {
      flushSpace();
      text_.append(TextEncoding::utf16FromUtf8(utf8), state.attributes);
      return;
    }
    std::size_t i = 0;
    while (i < utf8.size()) {
      if (isSpace(utf8[i])) {
        while (i < utf8.size() && isSpace(utf8[i])) {
          ++i;
        }
        if (!atLineStart()) {
          pendingSpace_ = state.attributes;
        }
        continue;
      }
      std::size_t end = i;
      while (end < utf8.size() && !isSpace(utf8[end])) {
        ++end;
      }
      flushSpace();
      text_.append(TextEncoding::utf16FromUtf8(utf8.substr(i, end - i)), state.attributes);
      i = end;
    }
  }

  void flushSpace() {
    if (pendingSpace_) {
      text_.append(u" ", *pendingSpace_);
      pendingSpace_.reset();
    }
  }

  bool atLineStart() const {
    return text_.empty() || text_.text().back() == u'\n' || text_.text().back() == u'\u2028';
  }

  void appendBreak(char16_t separator) {
    pendingSpace_.reset();
    text_.append(std::u16string_view(&separator, 1), states_.back().attributes);
  }

  void paragraphBreak() {
    if (!text_.empty() && text_.text().back() != u'\n') {
      appendBreak(u'\n');
    }
    pendingSpace_.reset();
  }

  AttributedString text_;
  std::vector<State> states_;
  std::optional<TextAttributes> pendingSpace_;
};

}  // namespace

std::optional<AttributedString> HtmlReader::read(std::string_view html) {
  if (html.size() > static_cast<std::size_t>(INT_MAX)) {
    return std::nullopt;
  }
  // The parser makes no document of nothing, where an empty page is meant.
  if (std::all_of(html.begin(), html.end(), isSpace)) {
    return AttributedString();
  }
  const PreparedBytes prepared = prepare(html);
  htmlDocPtr document =
      htmlReadMemory(prepared.bytes.data(), static_cast<int>(prepared.bytes.size()), nullptr,
                     prepared.encoding, HTML_PARSE_NONET | HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING);
  if (document == nullptr) {
    return std::nullopt;
  }
  TextAttributes base;
  base.font = FontDescriptor{"Times", kBaseFontSize};
  TextBuilder builder(base);
  if (xmlNode* root = xmlDocGetRootElement(document)) {
    builder.walk(root);
  }
  xmlFreeDoc(document);
  return builder.finish();
}

}  // namespace qva
