#include "foundation/documents/DocumentReader.h"

#include <algorithm>
#include <array>
#include <filesystem>

#include "foundation/documents/HtmlReader.h"
#include "foundation/encodings/StringEncodings.h"
#include "foundation/rtf/RtfReader.h"
#include "foundation/xpl/xplFiles.h"
#include "framework/StringCase.h"

namespace qva {

namespace {

std::string extensionOf(const std::string& fileName) {
  std::string extension = std::filesystem::path(fileName).extension().string();
  return asciiLowercased(extension.empty() ? extension : extension.substr(1));
}

// The bytes after a UTF-8 byte-order mark and leading white space, lower-cased, for sniffing.
std::string leadingText(std::string_view bytes) {
  if (bytes.starts_with("\xEF\xBB\xBF")) {
    bytes.remove_prefix(3);
  }
  const std::size_t start = bytes.find_first_not_of(" \t\r\n");
  return start == std::string_view::npos ? std::string() : asciiLowercased(bytes.substr(start, 256));
}

bool looksLikeHtml(std::string_view bytes) {
  const std::string text = leadingText(bytes);
  return text.starts_with("<!doctype html") || text.starts_with("<html") ||
         (text.starts_with("<?xml") && text.find("<html") != std::string::npos);
}

// Bytes with zeros and no UTF-16 byte-order mark are no text.
bool looksBinary(std::string_view bytes) {
  const bool utf16 = bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF");
  return !utf16 && bytes.find('\0') != std::string_view::npos;
}

DocumentReader::Result refused(const std::string& fileName, const std::string& format) {
  return {std::nullopt, "\"" + fileName + "\" is " + format +
                            ", a format this system does not read; it reads plain text, RTF and HTML"};
}

}  // namespace

std::optional<std::string> DocumentReader::unsupportedFormat(std::string_view bytes,
                                                             const std::string& fileName) {
  struct Named {
    std::string_view extension;
    std::string_view format;
  };
  static constexpr std::array<Named, 8> kUnsupported{{
      {"rtfd", "RTF with Attachments (.rtfd)"},
      {"doc", "Word 97 (.doc)"},
      {"docx", "Word 2007 (.docx)"},
      {"docm", "Word 2007 (.docm)"},
      {"odt", "Open Document (.odt)"},
      {"wordml", "Word 2003 XML (.wordml)"},
      {"webarchive", "Web Archive (.webarchive)"},
      {"pages", "Pages (.pages)"},
  }};
  const std::string extension = extensionOf(fileName);
  for (const Named& named : kUnsupported) {
    if (named.extension == extension) {
      return std::string(named.format);
    }
  }
  if (extension == "xml" && bytes.substr(0, 4096).find("<w:wordDocument") != std::string_view::npos) {
    return std::string("Word 2003 XML (.xml)");
  }
  // Word 2007 and Open Document files are zip archives, whatever they are called.
  if (bytes.starts_with("PK\x03\x04")) {
    return std::string("a zip archive (Word 2007 or Open Document)");
  }
  if (bytes.starts_with("\xD0\xCF\x11\xE0")) {
    return std::string("Word 97 (.doc)");
  }
  return std::nullopt;
}

DocumentReader::Format DocumentReader::formatOf(std::string_view bytes, const std::string& fileName) {
  const std::string extension = extensionOf(fileName);
  if (extension == "rtf") {
    return Format::RTF;
  }
  if (extension == "html" || extension == "htm" || extension == "xhtml" || extension == "shtml") {
    return Format::HTML;
  }
  if (bytes.starts_with("{\\rtf")) {
    return Format::RTF;
  }
  return looksLikeHtml(bytes) ? Format::HTML : Format::PlainText;
}

DocumentReader::Result DocumentReader::read(std::string_view bytes, const std::string& fileName) {
  if (auto format = unsupportedFormat(bytes, fileName)) {
    return refused(fileName, *format);
  }
  switch (formatOf(bytes, fileName)) {
    case Format::RTF: {
      RtfReader::Result rtf = RtfReader::read(bytes);
      if (rtf.error) {
        return {std::nullopt, "\"" + fileName + "\" is no valid RTF document: " + rtf.message};
      }
      return {std::move(rtf.text), {}};
    }
    case Format::HTML:
      if (auto html = HtmlReader::read(bytes)) {
        return {std::move(html), {}};
      }
      return {std::nullopt, "\"" + fileName + "\" holds no HTML document"};
    case Format::PlainText:
      break;
  }
  std::optional<std::string> text =
      looksBinary(bytes) ? std::nullopt : StringEncodings::decodeDetected(bytes);
  if (!text) {
    return {std::nullopt,
            "\"" + fileName + "\" is neither text nor a document of a format this system reads"};
  }
  return {AttributedString::fromUtf8(*text), {}};
}

DocumentReader::Result DocumentReader::readFile(const std::string& path) {
  const std::string fileName = std::filesystem::path(path).filename().string();
  // Some formats are folders; they are refused by name before anything is read.
  if (auto format = unsupportedFormat({}, fileName)) {
    return refused(fileName, *format);
  }
  std::string bytes;
  std::string error;
  if (!xpl_read_file(path, bytes, &error)) {
    return {std::nullopt, "cannot read " + error};
  }
  return read(bytes, fileName);
}

}  // namespace qva
