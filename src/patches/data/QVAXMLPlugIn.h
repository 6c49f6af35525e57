#pragma once

#include <libxml/tree.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/xml/QVAXMLPlugInDocument.h"
#include "framework/QVAPlugIn.h"
#include "framework/Structure.h"

namespace qva {

// "QVA XML": an XML document, from a URL (shared with other patches through the document cache) or
// from a string, queried with as many XPath expressions as the user asks for; each query's nodes come
// out in one of four forms.
class QVAXMLPlugIn final : public QVAPlugIn, public XmlDocumentUser {
 public:
  enum InputMode : std::uint32_t { DownloadFromURL = 0, XMLString = 1 };
  enum OutputMode : std::int32_t {
    StructureOfXML = 0,
    WrappedXMLString = 1,
    PlainString = 2,
    StructureOfText = 3
  };

  static const PatchClass& patchClass();
  // The next key of the form "name:i" that the structure does not hold ("root" for a missing name).
  static std::string keyForName(const std::optional<std::string>& name, const Structure& dictionary);
  // The URL a port's text names: URLs as they are, absolute paths as file URLs, other paths next to the
  // composition; none for a relative path in an unsaved composition.
  static std::optional<std::string> resolvedURL(const std::string& url,
                                                const std::optional<std::string>& compositionPath);

  QVAXMLPlugIn();
  ~QVAXMLPlugIn() override;

  bool startExecution(ExecutionContext& context) override;
  void stopExecution(ExecutionContext& context) override;
  double executionTimeForContext(ExecutionContext& context, double time, const Arguments& arguments) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
  PropertyList serializedValueForKey(const std::string& key) const override;
  void setSerializedValueForKey(const PropertyList& value, const std::string& key) override;

  void documentDidLoad(QVAXMLPlugInDocument& document) override;

  // The settings; each rebuilds the ports it concerns.
  void setXPathCount(std::uint32_t count);
  void setXmlInputMode(std::uint32_t mode);
  void setXmlOutputMode(std::int32_t mode);
  void setShowXML(bool show);
  void setDisableGlobalCache(bool disable);
  void setReloadOnModified(bool reload) { reloadOnModified = reload; }
  void setHideOutputCounts(bool hide);

 private:
  void addPortsForIndex(std::uint32_t index);
  void removePortsForIndex(std::uint32_t index);
  void rebuildGroups();
  void downloadXML(const std::optional<std::string>& url, const ExecutionContext& context);
  void setXmlURL(const std::optional<std::string>& url);
  void setUncachedDocument(std::shared_ptr<QVAXMLPlugInDocument> document);
  void setXMLDoc(XmlDocumentRef document);
  void reload();
  // The nodes the query selects; failures are logged and select none.
  std::vector<xmlNode*> executeXPathQuery(const std::string& query, const ExecutionContext& context) const;
  Value renderedNodes(const std::vector<xmlNode*>& nodes) const;
  void runQueries(const ExecutionContext& context);

  XmlDocumentRef xmlDoc;
  std::optional<std::string> xmlURL;
  std::shared_ptr<QVAXMLPlugInDocument> uncachedDocument;
  // The queue of the host that runs the patch, where documents deliver.
  MainThreadQueue* mainThreadQueue = nullptr;
  std::uint32_t xPathCount = 0;
  std::uint32_t xmlInputMode = DownloadFromURL;
  std::int32_t xmlOutputMode = StructureOfXML;
  bool showXML = false;
  bool xmlDownloaded = false;
  bool executeAllXPaths = false;
  bool xmlUpdated = false;
  bool disableGlobalCache = false;
  bool reloadOnModified = false;
  bool hideOutputCounts = false;
};

}  // namespace qva
