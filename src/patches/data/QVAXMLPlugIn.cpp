#include "patches/data/QVAXMLPlugIn.h"

#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <algorithm>
#include <filesystem>

#include "foundation/xml/QVAXMLPlugInCache.h"
#include "framework/PathAdditions.h"

namespace qva {

namespace {

constexpr const char* kDefaultURL = "http://feeds.bbci.co.uk/news/rss.xml";
constexpr const char* kDefaultXMLString =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><rss><channel><title>Hello XML World!</title></channel></rss>";
constexpr const char* kDefaultXPath = "/rss/channel/title";
// "Run at the next frame" is never asked for.
constexpr double kNever = 3.4028234663852886e38;

std::string indexed(const char* prefix, std::uint32_t index) {
  return prefix + std::to_string(index);
}
std::string outputKeyForIndex(std::uint32_t index) {
  return indexed("result", index);
}
std::string outputNameForIndex(std::uint32_t index) {
  return indexed("Result ", index + 1);
}
std::string outputCountKeyForIndex(std::uint32_t index) {
  return indexed("resultCount", index);
}
std::string outputCountNameForIndex(std::uint32_t index) {
  return indexed("Result Count ", index + 1);
}
std::string inputKeyForIndex(std::uint32_t index) {
  return indexed("xPath", index);
}
std::string inputNameForIndex(std::uint32_t index) {
  return indexed("XPath ", index + 1);
}

PortAttributes titled(const std::string& name, Value defaultValue = Value()) {
  PortAttributes attributes;
  attributes.name = name;
  attributes.defaultValue = std::move(defaultValue);
  return attributes;
}

std::string replacingSpaces(const std::string& text) {
  std::string result;
  for (const char c : text) {
    result += c == ' ' ? std::string("%20") : std::string(1, c);
  }
  return result;
}

// Whether the text can stand as a URL: printable ASCII without the characters URLs must escape.
bool isValidURLText(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte > 0x20 && byte < 0x7f && std::string_view("\"<>\\^`{|}").find(c) == std::string_view::npos;
  });
}

std::optional<std::string> nodeName(xmlNode* node) {
  if (node->type == XML_NAMESPACE_DECL) {
    const auto* ns = reinterpret_cast<xmlNs*>(node);
    return ns->prefix != nullptr ? reinterpret_cast<const char*>(ns->prefix) : "";
  }
  if (node->type != XML_ELEMENT_NODE && node->type != XML_ATTRIBUTE_NODE && node->type != XML_PI_NODE) {
    return std::nullopt;
  }
  std::string name = reinterpret_cast<const char*>(node->name);
  if (node->type != XML_PI_NODE && node->ns != nullptr && node->ns->prefix != nullptr) {
    name = reinterpret_cast<const char*>(node->ns->prefix) + (":" + name);
  }
  return name;
}

std::string nodeXml(xmlNode* node) {
  if (node->type == XML_NAMESPACE_DECL) {
    const auto* ns = reinterpret_cast<xmlNs*>(node);
    const std::string prefix =
        ns->prefix != nullptr ? ":" + std::string(reinterpret_cast<const char*>(ns->prefix)) : "";
    return "xmlns" + prefix + "=\"" + reinterpret_cast<const char*>(ns->href) + "\"";
  }
  std::string xml = XmlParser::nodeXml(node);
  if (node->type == XML_ATTRIBUTE_NODE && !xml.empty() && xml.front() == ' ') {
    xml.erase(0, 1);
  }
  return xml;
}

void collectXPathError(void* message, xmlError* error) {
  if (error != nullptr && error->message != nullptr) {
    std::string& text = *static_cast<std::string*>(message);
    text = error->message;
    while (!text.empty() && text.back() == '\n') {
      text.pop_back();
    }
  }
}

}  // namespace

const PatchClass& QVAXMLPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAXMLPlugIn";
    c.name = "QVA XML";
    c.description =
        "\n\nInput Modes:\n"
        "- \"Download from URL\" provides an input for a URL (URLs, absolute paths, and relative paths are "
        "accepted) and an update signal. An additional done signal output port is added.\n"
        "- \"XML String\" expects a well-formatted XML string.\n"
        "\n"
        "Output Modes:\n"
        "- \"Structure\" outputs a keyed structure using 'tag:i' as keys and the nodes as XML Strings as "
        "values.\n"
        "- \"XML String\" outputs one single XML String inside a new <root> tag.\n"
        "- \"Plain String\" simply outputs the node's value.\n"
        "- \"Show XML Document\" adds an output port with the whole XML as a string.\n"
        "\n";
    c.executionMode = ExecutionMode::Provider;
    c.timeMode = TimeMode::TimeBase;
    c.plugInKeys = QVAPlugIn::plugInKeys({"xPathCount", "xmlInputMode", "xmlOutputMode", "showXML",
                                          "disableGlobalCache", "reloadOnModified", "hideOutputCounts"});
    c.create = [] { return std::make_unique<QVAXMLPlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVAXMLPlugIn::QVAXMLPlugIn() : QVAPlugIn(patchClass()) {
  addOutputPort(PortType::String, "outputXML", titled("XML Document"));
  removeOutputPort("outputXML");
  addInputPort(PortType::String, "inputXMLString",
               titled("XML String", Value(std::string(kDefaultXMLString))));
  setXmlInputMode(DownloadFromURL);
}

QVAXMLPlugIn::~QVAXMLPlugIn() {
  setXMLDoc(nullptr);
  setXmlURL(std::nullopt);
}

std::string QVAXMLPlugIn::keyForName(const std::optional<std::string>& name, const Structure& dictionary) {
  const std::string base = name.value_or("root") + ":";
  for (std::size_t suffix = 0;; ++suffix) {
    std::string key = base + std::to_string(suffix);
    if (dictionary.find(key) == nullptr) {
      return key;
    }
  }
}

std::optional<std::string> QVAXMLPlugIn::resolvedURL(const std::string& url,
                                                     const std::optional<std::string>& compositionPath) {
  if (url.find("://") != std::string::npos) {
    return url;
  }
  if (!url.empty() && url.front() == '/') {
    return "file://" + url;
  }
  if (!compositionPath) {
    return std::nullopt;
  }
  // A composition opened by a relative path lies below the working folder.
  std::error_code noWorkingFolder;
  const std::string composition = std::filesystem::absolute(*compositionPath, noWorkingFolder).string();
  return "file://" + deletingLastPathComponent(replacingSpaces(composition)) + "/" + url;
}

// Settings -----------------------------------------------------------------------------------------

PropertyList QVAXMLPlugIn::serializedValueForKey(const std::string& key) const {
  if (key == "xPathCount")
    return xPathCount;
  if (key == "xmlInputMode")
    return xmlInputMode;
  if (key == "xmlOutputMode")
    return xmlOutputMode;
  if (key == "showXML")
    return showXML;
  if (key == "disableGlobalCache")
    return disableGlobalCache;
  if (key == "reloadOnModified")
    return reloadOnModified;
  if (key == "hideOutputCounts")
    return hideOutputCounts;
  return QVAPlugIn::serializedValueForKey(key);
}

void QVAXMLPlugIn::setSerializedValueForKey(const PropertyList& value, const std::string& key) {
  const auto unsignedValue = [&] {
    return static_cast<std::uint32_t>(std::max(0LL, propertyListInteger(value)));
  };
  const bool flag = propertyListDouble(value) != 0;
  if (key == "xPathCount") {
    setXPathCount(unsignedValue());
  } else if (key == "xmlInputMode") {
    setXmlInputMode(unsignedValue());
  } else if (key == "xmlOutputMode") {
    setXmlOutputMode(static_cast<std::int32_t>(propertyListInteger(value)));
  } else if (key == "showXML") {
    setShowXML(flag);
  } else if (key == "disableGlobalCache") {
    setDisableGlobalCache(flag);
  } else if (key == "reloadOnModified") {
    setReloadOnModified(flag);
  } else if (key == "hideOutputCounts") {
    setHideOutputCounts(flag);
  } else {
    QVAPlugIn::setSerializedValueForKey(value, key);
  }
}

void QVAXMLPlugIn::setXmlInputMode(std::uint32_t mode) {
  xmlInputMode = mode;
  if (mode != DownloadFromURL) {
    removeInputPort("inputURL");
    removeInputPort("inputUpdate");
    removeOutputPort("outputDone");
    addInputPort(PortType::String, "inputXMLString",
                 titled("XML String", Value(std::string(kDefaultXMLString))));
  } else {
    removeInputPort("inputXMLString");
    addInputPort(PortType::String, "inputURL", titled("URL", Value(std::string(kDefaultURL))));
    addInputPort(PortType::Boolean, "inputUpdate", titled("Update Signal", Value(false)));
    addOutputPort(PortType::Boolean, "outputDone", titled("Done Signal"));
  }
}

void QVAXMLPlugIn::setXmlOutputMode(std::int32_t mode) {
  if (mode == xmlOutputMode) {
    return;
  }
  xmlOutputMode = mode;
  rebuildGroups();
  executeAllXPaths = true;
}

void QVAXMLPlugIn::setShowXML(bool show) {
  showXML = show;
  if (show) {
    addOutputPort(PortType::String, "outputXML", titled("XML Document"));
  } else {
    removeOutputPort("outputXML");
  }
}

void QVAXMLPlugIn::setXPathCount(std::uint32_t count) {
  const std::uint32_t old = xPathCount;
  xPathCount = count;
  for (std::uint32_t index = count; index < old; ++index) {
    removePortsForIndex(index);
  }
  for (std::uint32_t index = old; index < count; ++index) {
    addPortsForIndex(index);
  }
}

void QVAXMLPlugIn::setHideOutputCounts(bool hide) {
  if (hide == hideOutputCounts) {
    return;
  }
  const std::uint32_t count = xPathCount;
  if (count != 0) {
    setXPathCount(0);
    hideOutputCounts = hide;
    setXPathCount(count);
  } else {
    hideOutputCounts = hide;
  }
}

void QVAXMLPlugIn::setDisableGlobalCache(bool disable) {
  disableGlobalCache = disable;
  const std::optional<std::string> url = xmlURL;
  setXmlURL(url);
}

void QVAXMLPlugIn::addPortsForIndex(std::uint32_t index) {
  const bool structured = xmlOutputMode == StructureOfXML || xmlOutputMode == StructureOfText;
  addOutputPort(structured ? PortType::Structure : PortType::String, outputKeyForIndex(index),
                titled(outputNameForIndex(index)));
  if (!hideOutputCounts) {
    addOutputPort(PortType::Index, outputCountKeyForIndex(index), titled(outputCountNameForIndex(index)));
  }
  addInputPort(PortType::String, inputKeyForIndex(index),
               titled(inputNameForIndex(index), Value(std::string(kDefaultXPath))));
}

void QVAXMLPlugIn::removePortsForIndex(std::uint32_t index) {
  removeOutputPort(outputKeyForIndex(index));
  if (!hideOutputCounts) {
    removeOutputPort(outputCountKeyForIndex(index));
  }
  removeInputPort(inputKeyForIndex(index));
}

void QVAXMLPlugIn::rebuildGroups() {
  for (std::uint32_t index = 0; index < xPathCount; ++index) {
    removePortsForIndex(index);
    addPortsForIndex(index);
  }
}

// Documents ----------------------------------------------------------------------------------------

void QVAXMLPlugIn::downloadXML(const std::optional<std::string>& url, const ExecutionContext& context) {
  xmlDownloaded = false;
  if (!url) {
    return;
  }
  setXmlURL(resolvedURL(*url, context.compositionPath()));
}

void QVAXMLPlugIn::setXmlURL(const std::optional<std::string>& url) {
  if (xmlURL) {
    QVAXMLPlugInCache::sharedCache().unregisterUser(this, *xmlURL);
    xmlURL.reset();
  }
  if (uncachedDocument) {
    setUncachedDocument(nullptr);
  }
  if (!url || mainThreadQueue == nullptr) {
    return;
  }
  xmlURL = url;
  if (disableGlobalCache) {
    setUncachedDocument(QVAXMLPlugInDocument::documentWithURL(*url, *mainThreadQueue));
  } else {
    QVAXMLPlugInCache::sharedCache().requestXMLForURL(*url, this, *mainThreadQueue);
  }
}

void QVAXMLPlugIn::setUncachedDocument(std::shared_ptr<QVAXMLPlugInDocument> document) {
  if (uncachedDocument) {
    uncachedDocument->removeUser(this);
  }
  uncachedDocument = std::move(document);
  if (uncachedDocument) {
    uncachedDocument->addUser(this);
  }
}

void QVAXMLPlugIn::setXMLDoc(XmlDocumentRef document) {
  xmlDoc = std::move(document);
  xmlDownloaded = xmlDoc != nullptr;
  executeAllXPaths = xmlDoc != nullptr;
}

void QVAXMLPlugIn::documentDidLoad(QVAXMLPlugInDocument& document) {
  setXMLDoc(document.xml());
  executeAllXPaths = true;
  xmlUpdated = true;
}

void QVAXMLPlugIn::reload() {
  if (disableGlobalCache) {
    if (reloadOnModified && uncachedDocument && uncachedDocument->url() == *xmlURL &&
        !uncachedDocument->needsReload()) {
      return;
    }
    setUncachedDocument(QVAXMLPlugInDocument::documentWithURL(*xmlURL, *mainThreadQueue));
    return;
  }
  QVAXMLPlugInCache& cache = QVAXMLPlugInCache::sharedCache();
  const std::shared_ptr<QVAXMLPlugInDocument> cached = cache.cachedDocumentForURL(*xmlURL);
  if (cached && reloadOnModified && !cached->needsReload()) {
    return;
  }
  cache.forceReloadForURL(*xmlURL, this);
}

// Execution ----------------------------------------------------------------------------------------

bool QVAXMLPlugIn::startExecution(ExecutionContext& context) {
  mainThreadQueue = &context.mainThreadQueue();
  return true;
}

void QVAXMLPlugIn::stopExecution(ExecutionContext&) {
  setXmlURL(std::nullopt);
}

double QVAXMLPlugIn::executionTimeForContext(ExecutionContext&, double time, const Arguments&) {
  for (std::uint32_t index = 0; index < xPathCount; ++index) {
    if (didValueForInputKeyChange(inputKeyForIndex(index))) {
      return time;
    }
  }
  if (xmlInputMode != DownloadFromURL) {
    return didValueForInputKeyChange("inputXMLString") ? time : kNever;
  }
  if (didValueForInputKeyChange("inputURL") || didValueForInputKeyChange("inputUpdate") || xmlUpdated) {
    xmlUpdated = false;
    return time;
  }
  return kNever;
}

bool QVAXMLPlugIn::execute(ExecutionContext& context, double, const Arguments&) {
  mainThreadQueue = &context.mainThreadQueue();
  if (xmlInputMode == DownloadFromURL) {
    if (didValueForInputKeyChange("inputURL")) {
      const std::string text = inputString("inputURL");
      if (text.empty()) {
        setXMLDoc(nullptr);
      } else {
        const std::string url = replacingSpaces(text);
        downloadXML(isValidURLText(url) ? std::optional<std::string>(url) : std::nullopt, context);
      }
    } else if (didValueForInputKeyChange("inputUpdate") && inputBoolean("inputUpdate") && xmlURL) {
      reload();
    }
  } else if (didValueForInputKeyChange("inputXMLString")) {
    const std::string text = inputString("inputXMLString");
    std::string ignored;
    setXMLDoc(text.empty() ? nullptr : XmlParser::parse(text, ignored));
  }
  runQueries(context);
  if (xmlInputMode == DownloadFromURL) {
    setValueForOutputKey(Value(xmlDownloaded), "outputDone");
  }
  if (showXML) {
    setValueForOutputKey(xmlDoc ? Value(XmlParser::documentXml(xmlDoc.get())) : Value(), "outputXML");
  }
  return true;
}

void QVAXMLPlugIn::runQueries(const ExecutionContext& context) {
  if (!xmlDoc) {
    for (std::uint32_t index = 0; index < xPathCount; ++index) {
      setValueForOutputKey(Value(), outputKeyForIndex(index));
      if (!hideOutputCounts) {
        setValueForOutputKey(Value(std::uint32_t{0}), outputCountKeyForIndex(index));
      }
    }
    return;
  }
  const bool all = executeAllXPaths;
  executeAllXPaths = false;
  for (std::uint32_t index = 0; index < xPathCount; ++index) {
    if (!all && !didValueForInputKeyChange(inputKeyForIndex(index))) {
      continue;
    }
    const std::vector<xmlNode*> nodes = executeXPathQuery(inputString(inputKeyForIndex(index)), context);
    setValueForOutputKey(renderedNodes(nodes), outputKeyForIndex(index));
    if (!hideOutputCounts) {
      setValueForOutputKey(Value(static_cast<std::uint32_t>(nodes.size())), outputCountKeyForIndex(index));
    }
  }
}

std::vector<xmlNode*> QVAXMLPlugIn::executeXPathQuery(const std::string& query,
                                                      const ExecutionContext& context) const {
  std::vector<xmlNode*> nodes;
  if (!xmlDoc || query.empty()) {
    return nodes;
  }
  xmlXPathContextPtr xpath = xmlXPathNewContext(xmlDoc.get());
  if (xpath == nullptr) {
    return nodes;
  }
  std::string error;
  xpath->node = reinterpret_cast<xmlNode*>(xmlDoc.get());
  xpath->error = collectXPathError;
  xpath->userData = &error;
  xmlXPathObjectPtr result = xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>(query.c_str()), xpath);
  if (result != nullptr && result->type == XPATH_NODESET) {
    const xmlNodeSet* set = result->nodesetval;
    for (int i = 0; set != nullptr && i < set->nodeNr; ++i) {
      nodes.push_back(set->nodeTab[i]);
    }
  } else {
    if (result != nullptr) {
      error = "the expression does not select nodes";
    } else if (error.empty()) {
      error = "invalid expression";
    }
    context.logMessage("Error executing XPath: " + error);
  }
  xmlXPathFreeObject(result);
  xmlXPathFreeContext(xpath);
  return nodes;
}

Value QVAXMLPlugIn::renderedNodes(const std::vector<xmlNode*>& nodes) const {
  switch (xmlOutputMode) {
    case StructureOfXML:
    case StructureOfText: {
      auto structure = std::make_shared<Structure>();
      for (xmlNode* node : nodes) {
        if (xmlOutputMode == StructureOfXML) {
          structure->set(keyForName(nodeName(node), *structure), Value(nodeXml(node)));
        } else {
          structure->set(keyForName("string", *structure), Value(XmlParser::nodeText(node)));
        }
      }
      return Value(StructureRef(std::move(structure)));
    }
    case WrappedXMLString: {
      if (nodes.empty()) {
        return Value(std::string());
      }
      std::string xml = "<?xml version=\"1.0\" encoding=\"utf-8\"?><root>";
      for (xmlNode* node : nodes) {
        xml += nodeXml(node);
      }
      return Value(xml + "</root>");
    }
    case PlainString: {
      std::string text;
      for (xmlNode* node : nodes) {
        text += XmlParser::nodeText(node);
      }
      return Value(text);
    }
    default:
      return Value();
  }
}

}  // namespace qva
