#include "host/FileAction.h"

#include <sys/stat.h>
#include <utime.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "framework/PathAdditions.h"
#include "host/Base64.h"

namespace qva {

namespace fs = std::filesystem;

namespace {

std::string requiredString(const PropertyList& step, const char* key, const std::string& action) {
  if (!step.contains(key) || !step[key].is_string()) {
    throw std::invalid_argument("fs " + action + " needs \"" + key + "\"");
  }
  return step[key].get<std::string>();
}

bool writeBytes(const std::string& path, const std::string& bytes, std::ios::openmode mode) {
  std::ofstream file(path, std::ios::binary | mode);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(file);
}

// The absolute path with every symbolic link along it replaced by its target, as the system follows
// them, dangling links included (writing through one creates its target); the last name too when
// followLast. Empty past the system's limit of 40 links, as for a loop.
fs::path resolved(const std::string& path, bool followLast) {
  std::error_code error;
  const fs::path absolute = fs::absolute(path, error);
  std::deque<fs::path> rest(std::next(absolute.begin()), absolute.end());
  fs::path done = absolute.root_path();
  for (int links = 0; !rest.empty();) {
    const fs::path name = rest.front();
    rest.pop_front();
    if (name.empty() || name == ".") {
      continue;
    }
    if (name == "..") {
      done = done.parent_path();
      continue;
    }
    const fs::path next = done / name;
    if ((followLast || !rest.empty()) && fs::is_symlink(next, error)) {
      if (++links > 40) {
        return {};
      }
      const fs::path target = fs::read_symlink(next, error);
      if (target.is_absolute()) {
        done = target.root_path();
      }
      rest.insert(rest.begin(), target.is_absolute() ? std::next(target.begin()) : target.begin(),
                  target.end());
      continue;
    }
    done = next;
  }
  return done;
}

bool strictlyInside(const fs::path& path, const std::vector<std::string>& folders) {
  return std::any_of(folders.begin(), folders.end(), [&](const std::string& folder) {
    const fs::path relative = path.lexically_relative(resolved(folder, true));
    return !relative.empty() && relative != "." && *relative.begin() != "..";
  });
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
      const std::optional<std::string> bytes = decodeBase64(step["base64"].get<std::string>());
      if (!bytes) {
        throw std::invalid_argument("fs \"base64\" is not valid base64");
      }
      bytes_ = *bytes;
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

std::string FileAction::refusal(const std::vector<std::string>& folders) const {
  // Writing, appending, touching and making folders follow a link at the path itself; removing,
  // renaming and linking act on the link.
  const bool followsLink =
      action_ == "write" || action_ == "append" || action_ == "touch" || action_ == "mkdir";
  std::vector<std::string> changed = {path_};
  if (action_ == "rename") {
    changed.push_back(target_);
  }
  for (const std::string& path : changed) {
    if (!strictlyInside(resolved(path, false), folders) ||
        (followsLink && !strictlyInside(resolved(path, true), folders))) {
      std::string names;
      for (const std::string& folder : folders) {
        names += (names.empty() ? "" : ", ") + folder;
      }
      return "fs " + action_ + " may change only what lies inside " + names +
             " (add a folder with --fs-root); " + path + " does not";
    }
  }
  return {};
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
