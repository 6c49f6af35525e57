#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "foundation/xml/XmlDocumentUser.h"
#include "foundation/xml/XmlParser.h"
#include "foundation/xml/XmlSource.h"
#include "framework/MainThreadQueue.h"

namespace qva {

// One XML source: loaded on a thread of its own per load, the result stored and handed to the users
// on the host thread while the loader waits. Users asking within 10 s of a load share its result.
class QVAXMLPlugInDocument : public std::enable_shared_from_this<QVAXMLPlugInDocument> {
 public:
  enum State : std::int32_t { New = 0, Loading = 1, Loaded = 2, Failed = 3 };
  using Clock = std::chrono::steady_clock;
  // A load younger than this is handed to new users as it is.
  static constexpr std::chrono::duration<double> kFreshSpan{10.0};

  // "feed://" URLs are stored as "http://". Deliveries go through the queue; a download that takes
  // longer than the time-out fails.
  static std::shared_ptr<QVAXMLPlugInDocument> documentWithURL(
      const std::string& url, MainThreadQueue& queue,
      std::chrono::milliseconds downloadTimeout = XmlSource::kDownloadTimeout);
  // The URL a document for url stores and is found under.
  static std::string storedURL(const std::string& url);
  ~QVAXMLPlugInDocument();
  QVAXMLPlugInDocument(const QVAXMLPlugInDocument&) = delete;
  QVAXMLPlugInDocument& operator=(const QVAXMLPlugInDocument&) = delete;

  // Starts a load, waits for the running one, or hands over a fresh result at once (on this thread).
  void addUser(XmlDocumentUser* user);
  void removeUser(XmlDocumentUser* user);
  void reloadForUser(XmlDocumentUser* user);
  std::size_t totalUserCount() const;
  // Whether the source may have changed since the last load; only file URLs can tell that it has not.
  bool needsReload() const;

  const std::string& url() const { return url_; }
  State state() const;
  XmlDocumentRef xml() const;
  void setXml(XmlDocumentRef xml);
  std::optional<Clock::time_point> loadTime() const;
  void setLoadTime(std::optional<Clock::time_point> loadTime);

 private:
  QVAXMLPlugInDocument(std::string url, MainThreadQueue& queue, std::chrono::milliseconds downloadTimeout);
  // Call with both user locks held.
  void startLoad();
  void loadXMLInBackground();
  void notifyNewUsers();
  std::string description() const;

  const std::string url_;
  MainThreadQueue& queue_;
  const std::chrono::milliseconds downloadTimeout_;
  // Locked in this order, around every use of the user lists and of the load's results.
  mutable std::recursive_mutex usersMutex_;
  mutable std::recursive_mutex newUsersMutex_;
  std::vector<XmlDocumentUser*> users_;
  std::vector<XmlDocumentUser*> newUsers_;
  State state_ = New;
  XmlDocumentRef xml_;
  std::optional<Clock::time_point> loadTime_;
  std::optional<std::filesystem::file_time_type> modified_;
};

}  // namespace qva
