#include "patches/richtext/RTF_File_ReaderPlugIn.h"

#include "foundation/rtf/RTFStringExtensions.h"
#include "foundation/rtf/RtfReader.h"
#include "foundation/text/TextEncoding.h"
#include "foundation/xpl/xplFiles.h"
#include "framework/Structure.h"

namespace qva {

const PatchClass& RTF_File_ReaderPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "RTF_File_ReaderPlugIn";
    c.name = "RTF File Reader";
    c.description =
        "This patch reads a file containing RTF-formatted text and provides its lines as an array of RTF "
        "strings. If no separator is specified, a newline is used to separate the strings.";
    c.executionMode = ExecutionMode::Provider;
    c.timeMode = TimeMode::Idle;
    c.inputs = {
        PortDescription::port("inputPath", PortType::String, "Path"),
        PortDescription::port("inputSeparator", PortType::String, "Separator"),
    };
    c.outputs = {PortDescription::port("outputLines", PortType::Structure, "Lines")};
    // The empty third key stands where the output would be expected; the host lists the output after it.
    c.sortedPropertyPortKeys = std::vector<std::string>{"inputPath", "inputSeparator", ""};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<RTF_File_ReaderPlugIn>(); };
    return c;
  }();
  return patchClass;
}

RTF_File_ReaderPlugIn::RTF_File_ReaderPlugIn() : QVAPlugIn(patchClass()) {}

std::vector<AttributedString> RTF_File_ReaderPlugIn::lines(const AttributedString& document,
                                                           const std::u16string& separator) {
  const std::u16string_view text = document.text();
  std::vector<AttributedString> lines;
  std::size_t searchStart = 0;
  std::size_t pieceStart = 0;
  for (;;) {
    const std::size_t pieceEnd =
        separator.empty() ? std::u16string_view::npos : text.find(separator, pieceStart);
    const std::u16string_view piece =
        text.substr(pieceStart, pieceEnd == std::u16string_view::npos ? pieceEnd : pieceEnd - pieceStart);
    if (!piece.empty()) {
      const std::size_t found = text.find(piece, searchStart);
      if (found != std::u16string_view::npos) {
        lines.push_back(document.substring(found, piece.size()));
        searchStart = found + 1;
      }
    }
    if (pieceEnd == std::u16string_view::npos) {
      return lines;
    }
    pieceStart = pieceEnd + separator.size();
  }
}

void RTF_File_ReaderPlugIn::fail(const std::string& failure) {
  if (failures_.isNew(failure)) {
    logMessage(failure);
  }
  setValueForOutputKey(Value(), "outputLines");
}

bool RTF_File_ReaderPlugIn::execute(ExecutionContext& context, double, const Arguments&) {
  const std::string path = inputString("inputPath");
  if (path.empty()) {
    failures_.clear();
    setValueForOutputKey(Value(), "outputLines");
    return true;
  }
  const std::string resolved = context.resolvePath(path);
  std::string bytes;
  std::string error;
  if (!xpl_read_file(resolved, bytes, &error)) {
    fail("RTF File Reader: cannot read " + error);
    return true;
  }
  RtfReader::Result document = RtfReader::read(bytes);
  if (document.error) {
    fail("RTF File Reader: \"" + resolved + "\" is no RTF document: " + document.message);
    return true;
  }
  failures_.clear();
  const std::string separator = inputString("inputSeparator");
  std::vector<Value> strings;
  for (const AttributedString& line :
       lines(document.text,
             separator.empty() ? std::u16string(u"\n") : TextEncoding::utf16FromUtf8(separator))) {
    if (auto rtf = RTFStringExtensions::RTFAsPlainString(line)) {
      strings.emplace_back(std::move(*rtf));
    }
  }
  setValueForOutputKey(Value(Structure::makeArray(std::move(strings))), "outputLines");
  return true;
}

}  // namespace qva
