#include "host/FileAction.h"

#include <openssl/evp.h>
#include <sys/stat.h>
#include <utime.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "framework/PathAdditions.h"

namespace qva {

namespace fs = std::filesystem;

namespace {

std::string requiredString(const PropertyList& step, const char* key, const std::string& action) {
  if (!step.contains(key) || !step[key].is_string()) {
    throw std::invalid_argument("fs " + action + " needs \"" + key + "\"");
  }
  return step[key].get<std::string>();
}

std::string decodeBase64(const std::string& text) {
  if (text.size() % 4 != 0) {
    throw std::invalid_argument("fs \"base64\" is not valid base64");
  }
  std::string bytes(text.size() / 4 * 3, '\0');
  const int length =
      EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                      reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
  if (length < 0) {
    throw std::invalid_argument("fs \"base64\" is not valid base64");
  }
  const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  bytes.resize(static_cast<std::size_t>(length) - padding);
  return bytes;
}

bool writeBytes(const std::string& path, const std::string& bytes, std::ios::openmode mode) {
  std::ofstream file(path, std::ios::binary | mode);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(file);
}

}  // namespace

FileAction::FileAction(const PropertyList& step, const std::string& folder) {
  action_ = requiredString(step, "action", "step");
  path_ = pathResolvedAgainst(requiredString(step, "path", action_), folder);
  if (action_ == "rename" || action_ == "symlink") {
    target_ = requiredString(step, "to", action_);
    if (action_ == "rename") {
      target_ = pathResolvedAgainst(target_, folder);
    }
  } else if (action_ == "write" || action_ == "append") {
    if (step.contains("base64") && step["base64"].is_string()) {
      bytes_ = decodeBase64(step["base64"].get<std::string>());
    } else if (step.contains("text")) {
      bytes_ = requiredString(step, "text", action_);
    }
  } else if (action_ == "touch") {
    if (step.contains("mtime")) {
      if (!step["mtime"].is_number()) {
        throw std::invalid_argument("\"mtime\" of touch must be a number of Unix seconds");
      }
      modificationTime_ = propertyListInteger(step["mtime"]);
    }
  } else if (action_ != "remove" && action_ != "mkdir") {
    throw std::invalid_argument("unknown fs action \"" + action_ +
                                "\" (write, append, touch, remove, rename, mkdir or symlink)");
  }
}

bool FileAction::apply() const {
  std::error_code error;
  if (action_ == "write") {
    return writeBytes(path_, bytes_, std::ios::trunc);
  }
  if (action_ == "append") {
    return writeBytes(path_, bytes_, std::ios::app);
  }
  if (action_ == "touch") {
    if (!fs::exists(path_, error) && !writeBytes(path_, "", std::ios::app)) {
      return false;
    }
    if (!modificationTime_) {
      return utime(path_.c_str(), nullptr) == 0;
    }
    const utimbuf times{static_cast<time_t>(*modificationTime_), static_cast<time_t>(*modificationTime_)};
    return utime(path_.c_str(), &times) == 0;
  }
  if (action_ == "remove") {
    return fs::remove_all(path_, error) > 0 && !error;
  }
  if (action_ == "rename") {
    fs::rename(path_, target_, error);
    return !error;
  }
  if (action_ == "mkdir") {
    fs::create_directories(path_, error);
    return !error && fs::is_directory(path_, error);
  }
  fs::create_symlink(target_, path_, error);
  return !error;
}

}  // namespace qva
