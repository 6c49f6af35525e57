#include "foundation/xml/QVAXMLPlugInCache.h"

#include <algorithm>
#include <iterator>
#include <sstream>

#include "framework/ProcessLog.h"

namespace qva {

QVAXMLPlugInCache& QVAXMLPlugInCache::sharedCache() {
  static QVAXMLPlugInCache cache;
  return cache;
}

std::shared_ptr<QVAXMLPlugInDocument> QVAXMLPlugInCache::cachedDocumentForURL(const std::string& url) const {
  std::lock_guard lock(mutex_);
  const auto found = std::find_if(xmlCache_.begin(), xmlCache_.end(),
                                  [&](const auto& document) { return document->url() == url; });
  return found != xmlCache_.end() ? *found : nullptr;
}

void QVAXMLPlugInCache::requestXMLForURL(const std::string& url, XmlDocumentUser* user,
                                         MainThreadQueue& queue) {
  std::shared_ptr<QVAXMLPlugInDocument> document = cachedDocumentForURL(url);
  if (!document) {
    document = QVAXMLPlugInDocument::documentWithURL(url, queue);
    std::lock_guard lock(mutex_);
    xmlCache_.push_back(document);
  }
  document->addUser(user);
}

void QVAXMLPlugInCache::forceReloadForURL(const std::string& url, XmlDocumentUser* user) {
  if (const std::shared_ptr<QVAXMLPlugInDocument> document = cachedDocumentForURL(url)) {
    document->reloadForUser(user);
    return;
  }
  std::ostringstream userName;
  userName << static_cast<const void*>(user);
  ProcessLog::write(
      "[<QVAXMLPlugInCache> forceReloadForURL:user:]: cached document for URL not found (user: " +
      userName.str() + "): " + url);
}

void QVAXMLPlugInCache::unregisterUser(XmlDocumentUser* user, const std::string& url) {
  // A "feed" URL's document is stored under its "http" URL; the user leaves that one too, so that no
  // document keeps a user that is gone.
  const std::string stored = QVAXMLPlugInDocument::storedURL(url);
  std::vector<std::shared_ptr<QVAXMLPlugInDocument>> documents;
  {
    std::lock_guard lock(mutex_);
    std::copy_if(xmlCache_.begin(), xmlCache_.end(), std::back_inserter(documents),
                 [&](const auto& document) { return document->url() == url || document->url() == stored; });
  }
  for (const std::shared_ptr<QVAXMLPlugInDocument>& document : documents) {
    document->removeUser(user);
    if (document->totalUserCount() == 0) {
      std::lock_guard lock(mutex_);
      std::erase(xmlCache_, document);
    }
  }
}

std::size_t QVAXMLPlugInCache::documentCount() const {
  std::lock_guard lock(mutex_);
  return xmlCache_.size();
}

}  // namespace qva
