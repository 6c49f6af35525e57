#pragma once

#include <libxml/tree.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace qva {

// A parsed document, shared by everyone who holds it.
using XmlDocumentRef = std::shared_ptr<xmlDoc>;

// Parses untrusted XML. Nothing named inside a document is ever loaded (no external entities, no DTDs,
// no network), entity references may not expand past a budget (the "billion laughs"), and documents
// larger than kMaximumDocumentBytes are refused.
class XmlParser {
 public:
  static constexpr std::size_t kMaximumDocumentBytes = 32 * 1024 * 1024;
  // The most text entity references in one document may expand to, in bytes.
  static constexpr std::size_t kMaximumEntityExpansion = 8 * 1024 * 1024;

  // The document, or null with the reason in error.
  static XmlDocumentRef parse(std::string_view bytes, std::string& error);
  // The node as XML text, as it stands in the document.
  static std::string nodeXml(xmlNode* node);
  // The node's string value: an element's descendant text, an attribute's value.
  static std::string nodeText(xmlNode* node);
  // The whole document as XML text.
  static std::string documentXml(xmlDoc* document);
};

}  // namespace qva
