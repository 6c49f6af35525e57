#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "framework/PropertyList.h"

namespace qva {

// Data held either by value (bytes) or by reference (a file path, absolute or relative to a base
// folder), archived under the keys "data", "path" and "basePath".
class QVADataStore {
 public:
  using Bytes = std::vector<std::uint8_t>;

  static QVADataStore dataStoreWithData(Bytes data);
  static QVADataStore dataStoreWithAbsolutePath(std::string path);
  static QVADataStore dataStoreWithRelativePath(std::string path, std::string basePath);
  // A store from its archive: "data" when present, otherwise "path" and then "basePath".
  static QVADataStore fromArchive(const PropertyList& archive);

  // A store with a path archives "path" (and "basePath" when set), never its bytes; a store without a
  // path archives "data" when it holds bytes.
  PropertyList archive() const;

  // None without a path; the path without a base; otherwise the base with the path appended.
  std::optional<std::string> fullPath() const;
  // Reads the file at fullPath() when no bytes are held; a failed read leaves none.
  void loadData();
  // The held bytes, loaded first if needed.
  const std::optional<Bytes>& data();
  bool isReference() const { return path_.has_value(); }
  bool isRelativePath() const { return path_ && !path_->starts_with('/'); }
  std::string description() const;

  const std::optional<std::string>& path() const { return path_; }
  const std::optional<std::string>& basePath() const { return basePath_; }
  void setBasePath(std::optional<std::string> basePath) { basePath_ = std::move(basePath); }

 private:
  std::optional<Bytes> data_;
  std::optional<std::string> path_;
  std::optional<std::string> basePath_;
};

}  // namespace qva
