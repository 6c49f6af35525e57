#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qva {

// Response header fields in the order the server sent them; a name sent twice holds the values joined
// by ", ".
using HTTPHeaderFields = std::vector<std::pair<std::string, std::string>>;

// The first field with that name, compared without case, or the end.
HTTPHeaderFields::iterator findHeaderField(HTTPHeaderFields& fields, const std::string& name);
HTTPHeaderFields::const_iterator findHeaderField(const HTTPHeaderFields& fields, const std::string& name);

// What a server answered to one request, after redirects and content decoding.
struct HTTPResponse {
  long statusCode = 0;
  HTTPHeaderFields headers;
  std::string body;
  // The Content-Length the server announced (of the body as sent), or -1 when it announced none.
  std::int64_t announcedContentLength = -1;

  // The value of the header with that name (compared without case), or none.
  std::optional<std::string> header(const std::string& name) const;
  // Adds a received header, joining it to an earlier one of the same name.
  void addHeader(const std::string& name, const std::string& value);
  // The body decoded to UTF-8 by the character set the Content-Type names; without one, or when the
  // body is not valid in it, valid UTF-8 is taken as such and anything else as Windows Latin 1.
  std::string bodyString() const;

  // The standard reason phrase of a status code ("Not Found"), or "Unknown Status" for codes outside
  // the registry.
  static std::string reasonPhrase(long statusCode);
};

}  // namespace qva
