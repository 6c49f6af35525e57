#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

namespace qva {

// Where a document's bytes come from: a file URL read from disk, an http or https URL downloaded.
// Both stop past the parser's size limit, so no source can make the loader hold more than that.
class XmlSource {
 public:
  // How long a download may take in all, unless the caller gives its own limit.
  static constexpr std::chrono::milliseconds kDownloadTimeout{30000};

  // Reads the whole source into bytes; false with the reason in error.
  static bool fetch(const std::string& url, std::string& bytes, std::string& error,
                    std::chrono::milliseconds downloadTimeout = kDownloadTimeout);
  // The file's modification date for a file URL; none for any other URL or a file that cannot be examined.
  static std::optional<std::filesystem::file_time_type> modificationDate(const std::string& url);
  // The path of a file URL ("file://" followed by a percent-encoded absolute path), or none.
  static std::optional<std::string> filePath(const std::string& url);
};

}  // namespace qva
