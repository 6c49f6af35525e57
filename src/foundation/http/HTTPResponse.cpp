#include "foundation/http/HTTPResponse.h"

#include <strings.h>

#include <algorithm>
#include <map>
#include <utility>

#include "foundation/encodings/StringEncodings.h"
#include "framework/StringCase.h"
#include "framework/StringTrimming.h"

namespace qva {

namespace {

// The charset parameter of a Content-Type value ("text/xml; charset=ISO-8859-1"), or empty.
std::string charsetOf(const std::string& contentType) {
  const auto at = asciiLowercased(contentType).find("charset=");
  if (at == std::string::npos) {
    return {};
  }
  const auto start = at + 8;
  const auto end = contentType.find(';', start);
  return trimmed(contentType.substr(start, end == std::string::npos ? std::string::npos : end - start),
                 " \t\"'");
}

}  // namespace

HTTPHeaderFields::const_iterator findHeaderField(const HTTPHeaderFields& fields, const std::string& name) {
  return std::find_if(fields.begin(), fields.end(), [&](const auto& field) {
    return ::strcasecmp(field.first.c_str(), name.c_str()) == 0;
  });
}

HTTPHeaderFields::iterator findHeaderField(HTTPHeaderFields& fields, const std::string& name) {
  return fields.begin() + (findHeaderField(std::as_const(fields), name) - fields.cbegin());
}

std::optional<std::string> HTTPResponse::header(const std::string& name) const {
  const auto found = findHeaderField(headers, name);
  return found == headers.end() ? std::nullopt : std::optional<std::string>(found->second);
}

void HTTPResponse::addHeader(const std::string& name, const std::string& value) {
  if (const auto found = findHeaderField(headers, name); found != headers.end()) {
    found->second += ", " + value;
  } else {
    headers.emplace_back(name, value);
  }
}

std::string HTTPResponse::bodyString() const {
  const std::string charset = charsetOf(header("Content-Type").value_or(""));
  if (!charset.empty()) {
    if (auto decoded = StringEncodings::decode(body, charset)) {
      return *decoded;
    }
  }
  return StringEncodings::decodeDetected(body).value_or(std::string());
}

std::string HTTPResponse::reasonPhrase(long statusCode) {
  static const std::map<long, const char*> phrases = {
      {100, "Continue"},
      {101, "Switching Protocols"},
      {200, "OK"},
      {201, "Created"},
      {202, "Accepted"},
      {203, "Non-Authoritative Information"},
      {204, "No Content"},
      {205, "Reset Content"},
      {206, "Partial Content"},
      {300, "Multiple Choices"},
      {301, "Moved Permanently"},
      {302, "Found"},
      {303, "See Other"},
      {304, "Not Modified"},
      {305, "Use Proxy"},
      {307, "Temporary Redirect"},
      {308, "Permanent Redirect"},
      {400, "Bad Request"},
      {401, "Unauthorized"},
      {402, "Payment Required"},
      {403, "Forbidden"},
      {404, "Not Found"},
      {405, "Method Not Allowed"},
      {406, "Not Acceptable"},
      {407, "Proxy Authentication Required"},
      {408, "Request Timeout"},
      {409, "Conflict"},
      {410, "Gone"},
      {411, "Length Required"},
      {412, "Precondition Failed"},
      {413, "Content Too Large"},
      {414, "URI Too Long"},
      {415, "Unsupported Media Type"},
      {416, "Range Not Satisfiable"},
      {417, "Expectation Failed"},
      {421, "Misdirected Request"},
      {422, "Unprocessable Content"},
      {425, "Too Early"},
      {426, "Upgrade Required"},
      {428, "Precondition Required"},
      {429, "Too Many Requests"},
      {431, "Request Header Fields Too Large"},
      {451, "Unavailable For Legal Reasons"},
      {500, "Internal Server Error"},
      {501, "Not Implemented"},
      {502, "Bad Gateway"},
      {503, "Service Unavailable"},
      {504, "Gateway Timeout"},
      {505, "HTTP Version Not Supported"},
      {511, "Network Authentication Required"},
  };
  const auto found = phrases.find(statusCode);
  return found == phrases.end() ? "Unknown Status" : found->second;
}

}  // namespace qva
