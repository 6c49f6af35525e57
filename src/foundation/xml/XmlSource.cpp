#include "foundation/xml/XmlSource.h"

#include <curl/curl.h>

#include <fstream>
#include <mutex>

#include "foundation/xml/XmlParser.h"
#include "framework/PercentEncoding.h"

namespace qva {

namespace {

constexpr std::string_view kFileScheme = "file://";

bool readFile(const std::string& path, std::string& bytes, std::string& error) {
  std::error_code failure;
  const auto size = std::filesystem::file_size(path, failure);
  if (failure) {
    error = path + ": " + failure.message();
    return false;
  }
  if (size > XmlParser::kMaximumDocumentBytes) {
    error = path + ": the file is larger than the " +
            std::to_string(XmlParser::kMaximumDocumentBytes / (1024 * 1024)) + " MB a document may have";
    return false;
  }
  std::ifstream file(path, std::ios::binary);
  bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  if (!file.good() && !file.eof()) {
    error = path + ": could not be read";
    return false;
  }
  return true;
}

size_t appendLimited(char* data, size_t size, size_t count, void* target) {
  auto& bytes = *static_cast<std::string*>(target);
  if (bytes.size() + size * count > XmlParser::kMaximumDocumentBytes) {
    return 0;  // curl stops the transfer with a write error
  }
  bytes.append(data, size * count);
  return size * count;
}

bool download(const std::string& url, std::string& bytes, std::string& error,
              std::chrono::milliseconds timeout) {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
  CURL* curl = curl_easy_init();
  if (curl == nullptr) {
    error = "could not start a download";
    return false;
  }
  char message[CURL_ERROR_SIZE] = {};
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 10L);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(timeout.count()));
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "");
  curl_easy_setopt(curl, CURLOPT_FAILONERROR, 1L);
  curl_easy_setopt(curl, CURLOPT_MAXFILESIZE_LARGE,
                   static_cast<curl_off_t>(XmlParser::kMaximumDocumentBytes));
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, appendLimited);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &bytes);
  curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, message);
  const CURLcode result = curl_easy_perform(curl);
  curl_easy_cleanup(curl);
  if (result != CURLE_OK) {
    error = message[0] != '\0' ? std::string(message) : std::string(curl_easy_strerror(result));
    return false;
  }
  return true;
}

}  // namespace

std::optional<std::string> XmlSource::filePath(const std::string& url) {
  if (!url.starts_with(kFileScheme)) {
    return std::nullopt;
  }
  // "file://localhost/path" names the same file as "file:///path".
  std::string_view rest = std::string_view(url).substr(kFileScheme.size());
  if (rest.starts_with("localhost/")) {
    rest.remove_prefix(std::string_view("localhost").size());
  }
  if (!rest.starts_with('/')) {
    return std::nullopt;
  }
  return percentDecode(rest);
}

bool XmlSource::fetch(const std::string& url, std::string& bytes, std::string& error,
                      std::chrono::milliseconds downloadTimeout) {
  bytes.clear();
  if (const std::optional<std::string> path = filePath(url)) {
    return readFile(*path, bytes, error);
  }
  if (url.starts_with("http://") || url.starts_with("https://")) {
    return download(url, bytes, error, downloadTimeout);
  }
  error = "unsupported URL (file, http and https are read)";
  return false;
}

std::optional<std::filesystem::file_time_type> XmlSource::modificationDate(const std::string& url) {
  const std::optional<std::string> path = filePath(url);
  if (!path) {
    return std::nullopt;
  }
  std::error_code failure;
  const auto date = std::filesystem::last_write_time(*path, failure);
  if (failure) {
    return std::nullopt;
  }
  return date;
}

}  // namespace qva
