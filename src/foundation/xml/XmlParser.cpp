#include "foundation/xml/XmlParser.h"

#include <libxml/entities.h>
#include <libxml/parser.h>
#include <libxml/xmlsave.h>

#include <map>
#include <mutex>

#include "framework/ProcessLog.h"

namespace qva {

namespace {

// Every load of an external resource the parser would make (entities, DTDs) is refused: documents are
// parsed from memory, so the parser itself never needs one.
xmlParserInputPtr refuseExternalResource(const char* url, const char*, xmlParserCtxtPtr) {
  ProcessLog::write(std::string("XML: refused to load the external resource ") + (url ? url : "(none)"));
  return nullptr;
}

void prepareLibrary() {
  static std::once_flag once;
  std::call_once(once, [] {
    xmlInitParser();
    xmlSetExternalEntityLoader(refuseExternalResource);
  });
}

// Counts what the entity references of a document expand to, giving up once past the budget, so that
// serialising or reading the text of the tree later stays bounded.
class EntityExpansion {
 public:
  explicit EntityExpansion(xmlDoc* document) : document_(document) {}

  bool withinBudget(xmlNode* node) {
    for (; node != nullptr; node = node->next) {
      if (node->type == XML_ENTITY_REF_NODE) {
        total_ += expandedLength(xmlGetDocEntity(document_, node->name), 0);
      } else if (node->type != XML_ENTITY_DECL) {
        if (node->type == XML_ELEMENT_NODE && !withinBudget(reinterpret_cast<xmlNode*>(node->properties))) {
          return false;
        }
        if (!withinBudget(node->children)) {
          return false;
        }
      }
      if (total_ > XmlParser::kMaximumEntityExpansion) {
        return false;
      }
    }
    return true;
  }

 private:
  std::size_t expandedLength(xmlEntity* entity, int depth) {
    if (entity == nullptr || entity->content == nullptr) {
      return 0;
    }
    if (depth > 40) {
      return XmlParser::kMaximumEntityExpansion + 1;
    }
    if (const auto known = lengths_.find(entity); known != lengths_.end()) {
      return known->second;
    }
    const std::string content(reinterpret_cast<const char*>(entity->content));
    std::size_t length = 0;
    for (std::size_t at = 0; at < content.size() && length <= XmlParser::kMaximumEntityExpansion;) {
      const std::size_t end = content.find(';', at);
      if (content[at] == '&' && end != std::string::npos && content[at + 1] != '#') {
        const std::string name = content.substr(at + 1, end - at - 1);
        length += expandedLength(xmlGetDocEntity(document_, reinterpret_cast<const xmlChar*>(name.c_str())),
                                 depth + 1);
        at = end + 1;
      } else {
        ++length;
        ++at;
      }
    }
    lengths_[entity] = length;
    return length;
  }

  xmlDoc* document_;
  std::size_t total_ = 0;
  std::map<xmlEntity*, std::size_t> lengths_;
};

}  // namespace

XmlDocumentRef XmlParser::parse(std::string_view bytes, std::string& error) {
  prepareLibrary();
  if (bytes.size() > kMaximumDocumentBytes) {
    error = "the document is larger than " + std::to_string(kMaximumDocumentBytes / (1024 * 1024)) + " MB";
    return nullptr;
  }
  xmlParserCtxtPtr context = xmlNewParserCtxt();
  if (context == nullptr) {
    error = "out of memory";
    return nullptr;
  }
  xmlDoc* document = xmlCtxtReadMemory(context, bytes.data(), static_cast<int>(bytes.size()), nullptr,
                                       nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
  if (document == nullptr) {
    const xmlError* last = xmlCtxtGetLastError(context);
    error = last != nullptr && last->message != nullptr ? std::string(last->message) : "not well-formed XML";
    while (!error.empty() && error.back() == '\n') {
      error.pop_back();
    }
    xmlFreeParserCtxt(context);
    return nullptr;
  }
  xmlFreeParserCtxt(context);
  XmlDocumentRef result(document, xmlFreeDoc);
  if (!EntityExpansion(document).withinBudget(document->children)) {
    error =
        "entity references expand past " + std::to_string(kMaximumEntityExpansion / (1024 * 1024)) + " MB";
    return nullptr;
  }
  return result;
}

std::string XmlParser::nodeXml(xmlNode* node) {
  xmlBufferPtr buffer = xmlBufferCreate();
  xmlNodeDump(buffer, node->doc, node, 0, 0);
  std::string text(reinterpret_cast<const char*>(xmlBufferContent(buffer)), xmlBufferLength(buffer));
  xmlBufferFree(buffer);
  return text;
}

std::string XmlParser::nodeText(xmlNode* node) {
  xmlChar* content = xmlNodeGetContent(node);
  std::string text = content != nullptr ? reinterpret_cast<const char*>(content) : "";
  xmlFree(content);
  return text;
}

std::string XmlParser::documentXml(xmlDoc* document) {
  xmlChar* bytes = nullptr;
  int length = 0;
  xmlDocDumpMemoryEnc(document, &bytes, &length, "UTF-8");
  std::string text = bytes != nullptr ? std::string(reinterpret_cast<const char*>(bytes), length) : "";
  xmlFree(bytes);
  return text;
}

}  // namespace qva
