#include "foundation/store/QVADataStore.h"

#include <fstream>
#include <iterator>

#include "framework/StringFormat.h"

namespace qva {

namespace {
constexpr const char* kDataKey = "data";
constexpr const char* kPathKey = "path";
constexpr const char* kBasePathKey = "basePath";
}  // namespace

QVADataStore QVADataStore::dataStoreWithData(Bytes data) {
  QVADataStore store;
  store.data_ = std::move(data);
  return store;
}

QVADataStore QVADataStore::dataStoreWithAbsolutePath(std::string path) {
  QVADataStore store;
  store.path_ = std::move(path);
  return store;
}

QVADataStore QVADataStore::dataStoreWithRelativePath(std::string path, std::string basePath) {
  QVADataStore store;
  store.path_ = std::move(path);
  store.basePath_ = std::move(basePath);
  return store;
}

QVADataStore QVADataStore::fromArchive(const PropertyList& archive) {
  QVADataStore store;
  if (!archive.is_object()) {
    return store;
  }
  if (archive.contains(kDataKey) && archive[kDataKey].is_binary()) {
    const auto& bytes = archive[kDataKey].get_binary();
    store.data_ = Bytes(bytes.begin(), bytes.end());
    return store;
  }
  if (archive.contains(kPathKey) && archive[kPathKey].is_string()) {
    store.path_ = archive[kPathKey].get<std::string>();
    if (archive.contains(kBasePathKey) && archive[kBasePathKey].is_string()) {
      store.basePath_ = archive[kBasePathKey].get<std::string>();
    }
  }
  return store;
}

PropertyList QVADataStore::archive() const {
  PropertyList archive = PropertyList::object();
  if (path_) {
    archive[kPathKey] = *path_;
    if (basePath_) {
      archive[kBasePathKey] = *basePath_;
    }
  } else if (data_) {
    archive[kDataKey] = PropertyList::binary(*data_);
  }
  return archive;
}

std::optional<std::string> QVADataStore::fullPath() const {
  if (!path_) {
    return std::nullopt;
  }
  if (!basePath_) {
    return *path_;
  }
  std::string base = *basePath_;
  while (base.size() > 1 && base.back() == '/') {
    base.pop_back();
  }
  std::string component = *path_;
  while (component.starts_with('/')) {
    component.erase(0, 1);
  }
  return base == "/" ? base + component : base + "/" + component;
}

void QVADataStore::loadData() {
  const std::optional<std::string> file = fullPath();
  if (data_ || !file) {
    return;
  }
  std::ifstream stream(*file, std::ios::binary);
  if (!stream) {
    return;
  }
  Bytes bytes((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
  if (!stream.bad()) {
    data_ = std::move(bytes);
  }
}

const std::optional<QVADataStore::Bytes>& QVADataStore::data() {
  loadData();
  return data_;
}

std::string QVADataStore::description() const {
  std::string text = formatString("<QVADataStore: %p>", static_cast<const void*>(this));
  if (!path_) {
    return text + formatString(" %i bytes of data", data_ ? static_cast<int>(data_->size()) : 0);
  }
  text += " path: " + *path_;
  if (basePath_) {
    text += " basePath: " + *basePath_;
  }
  return text;
}

}  // namespace qva
