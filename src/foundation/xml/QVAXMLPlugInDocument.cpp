#include "foundation/xml/QVAXMLPlugInDocument.h"

#include <algorithm>
#include <future>
#include <thread>

#include "framework/ProcessLog.h"

namespace qva {

std::string QVAXMLPlugInDocument::storedURL(const std::string& url) {
  constexpr std::string_view feed = "feed://";
  if (url.compare(0, feed.size(), feed) == 0) {
    return "http://" + url.substr(feed.size());
  }
  return url;
}

QVAXMLPlugInDocument::QVAXMLPlugInDocument(std::string url, MainThreadQueue& queue,
                                           std::chrono::milliseconds downloadTimeout)
    : url_(storedURL(url)), queue_(queue), downloadTimeout_(downloadTimeout) {}

std::shared_ptr<QVAXMLPlugInDocument> QVAXMLPlugInDocument::documentWithURL(
    const std::string& url, MainThreadQueue& queue, std::chrono::milliseconds downloadTimeout) {
  return std::shared_ptr<QVAXMLPlugInDocument>(new QVAXMLPlugInDocument(url, queue, downloadTimeout));
}

QVAXMLPlugInDocument::~QVAXMLPlugInDocument() {
  std::lock_guard users(usersMutex_);
  std::lock_guard newUsers(newUsersMutex_);
  users_.clear();
  newUsers_.clear();
}

std::string QVAXMLPlugInDocument::description() const {
  return "<QVAXMLPlugInDocument " + url_ + ">";
}

void QVAXMLPlugInDocument::addUser(XmlDocumentUser* user) {
  std::lock_guard users(usersMutex_);
  std::lock_guard newUsers(newUsersMutex_);
  switch (state_) {
    case New:
    case Failed:
      newUsers_.push_back(user);
      startLoad();
      break;
    case Loading:
      newUsers_.push_back(user);
      break;
    case Loaded:
      newUsers_.push_back(user);
      if (loadTime_ && Clock::now() - *loadTime_ < kFreshSpan) {
        notifyNewUsers();
      } else {
        startLoad();
      }
      break;
    default:
      ProcessLog::write("[" + description() + " addUser:]: invalid state: " + std::to_string(state_));
  }
}

void QVAXMLPlugInDocument::removeUser(XmlDocumentUser* user) {
  std::lock_guard users(usersMutex_);
  std::lock_guard newUsers(newUsersMutex_);
  for (std::vector<XmlDocumentUser*>* list : {&users_, &newUsers_}) {
    if (const auto found = std::find(list->begin(), list->end(), user); found != list->end()) {
      list->erase(found);
      return;
    }
  }
}

void QVAXMLPlugInDocument::reloadForUser(XmlDocumentUser* user) {
  removeUser(user);
  addUser(user);
}

std::size_t QVAXMLPlugInDocument::totalUserCount() const {
  std::lock_guard users(usersMutex_);
  std::lock_guard newUsers(newUsersMutex_);
  return users_.size() + newUsers_.size();
}

bool QVAXMLPlugInDocument::needsReload() const {
  std::optional<std::filesystem::file_time_type> modified;
  {
    std::lock_guard users(usersMutex_);
    modified = modified_;
  }
  const std::optional<std::filesystem::file_time_type> current = XmlSource::modificationDate(url_);
  return !modified || !current || *modified < *current;
}

QVAXMLPlugInDocument::State QVAXMLPlugInDocument::state() const {
  std::lock_guard users(usersMutex_);
  return state_;
}

XmlDocumentRef QVAXMLPlugInDocument::xml() const {
  std::lock_guard users(usersMutex_);
  return xml_;
}

void QVAXMLPlugInDocument::setXml(XmlDocumentRef xml) {
  std::lock_guard users(usersMutex_);
  xml_ = std::move(xml);
}

std::optional<QVAXMLPlugInDocument::Clock::time_point> QVAXMLPlugInDocument::loadTime() const {
  std::lock_guard users(usersMutex_);
  return loadTime_;
}

void QVAXMLPlugInDocument::setLoadTime(std::optional<Clock::time_point> loadTime) {
  std::lock_guard users(usersMutex_);
  loadTime_ = loadTime;
}

void QVAXMLPlugInDocument::startLoad() {
  state_ = Loading;
  // The thread keeps the document alive until its result has been delivered.
  std::thread([self = shared_from_this()] { self->loadXMLInBackground(); }).detach();
}

void QVAXMLPlugInDocument::loadXMLInBackground() {
  std::string bytes;
  std::string error;
  const std::optional<std::filesystem::file_time_type> modified = XmlSource::modificationDate(url_);
  XmlDocumentRef xml;
  if (XmlSource::fetch(url_, bytes, error, downloadTimeout_)) {
    xml = XmlParser::parse(bytes, error);
  }
  {
    // The document is stored with its state, so that a reader arriving before the delivery below runs
    // and finding the document loaded is handed this document, not the one before it.
    std::lock_guard users(usersMutex_);
    std::lock_guard newUsers(newUsersMutex_);
    xml_ = xml;
    if (xml) {
      loadTime_ = Clock::now();
      modified_ = modified;
      state_ = Loaded;
    } else {
      loadTime_.reset();
      state_ = Failed;
    }
  }
  if (!xml) {
    ProcessLog::write("[" + description() + " _loadXMLInBackground]: error while downloading XML from URL " +
                      url_ + ": " + error);
  }
  // Posted under the user locks: a user leaves (and its host's queue can go) only after the post, and
  // a document left without users has no one to deliver to.
  auto delivered = std::make_shared<std::promise<void>>();
  std::future<void> finished = delivered->get_future();
  {
    std::lock_guard users(usersMutex_);
    std::lock_guard newUsers(newUsersMutex_);
    if (users_.empty() && newUsers_.empty()) {
      return;
    }
    queue_.post([self = shared_from_this(), delivered] {
      {
        std::lock_guard usersLock(self->usersMutex_);
        std::lock_guard newUsersLock(self->newUsersMutex_);
        self->notifyNewUsers();
      }
      delivered->set_value();
    });
  }
  // Returns as well when the queue is dropped without running the delivery.
  finished.wait();
}

void QVAXMLPlugInDocument::notifyNewUsers() {
  // A user told here may ask again from its callback; it then waits for the next delivery.
  std::vector<XmlDocumentUser*> told;
  told.swap(newUsers_);
  for (XmlDocumentUser* user : told) {
    user->documentDidLoad(*this);
  }
  users_.insert(users_.end(), told.begin(), told.end());
}

}  // namespace qva
