#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "foundation/xml/QVAXMLPlugInDocument.h"

namespace qva {

// The process-wide documents of patches that share downloads: one document per URL, kept while it
// has users.
class QVAXMLPlugInCache {
 public:
  static QVAXMLPlugInCache& sharedCache();

  // The document stored under exactly this URL, or null.
  std::shared_ptr<QVAXMLPlugInDocument> cachedDocumentForURL(const std::string& url) const;
  // Makes the document when there is none, then adds the user (who may be told at once).
  void requestXMLForURL(const std::string& url, XmlDocumentUser* user, MainThreadQueue& queue);
  void forceReloadForURL(const std::string& url, XmlDocumentUser* user);
  // Removes the user; a document left without users leaves the cache.
  void unregisterUser(XmlDocumentUser* user, const std::string& url);
  std::size_t documentCount() const;

 private:
  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<QVAXMLPlugInDocument>> xmlCache_;
};

}  // namespace qva
