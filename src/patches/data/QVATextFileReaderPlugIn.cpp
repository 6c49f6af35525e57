#include "patches/data/QVATextFileReaderPlugIn.h"

#include "foundation/encodings/StringEncodings.h"
#include "foundation/xpl/xplFiles.h"
#include "framework/Structure.h"

namespace qva {

const PatchClass& QVATextFileReaderPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVATextFileReaderPlugIn";
    c.name = "Text File Reader";
    c.description =
        "This patch reads a plain text file and provides its lines as an array of strings. If no separator "
        "is "
        "specified, a newline is used to separate the strings.";
    c.executionMode = ExecutionMode::Provider;
    c.timeMode = TimeMode::Idle;
    c.inputs = {
        PortDescription::port("inputPath", PortType::String, "Path"),
        PortDescription::port("inputSeparator", PortType::String, "Separator"),
        PortDescription::port("inputLoadMode", PortType::Index, "Load Mode", Value(std::uint32_t{Poll}))
            .withMaximum(1)
            .withMenu({"Poll", "Flag"}),
        PortDescription::port("inputReload", PortType::Boolean, "Reload", Value(false)),
    };
    c.outputs = {PortDescription::port("outputLines", PortType::Structure, "Lines")};
    c.sortedPropertyPortKeys = std::vector<std::string>{"inputPath", "inputSeparator", "inputLoadMode",
                                                        "inputReload", "outputLines"};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVATextFileReaderPlugIn>(); };
    return c;
  }();
  return patchClass;
}

std::vector<std::string> QVATextFileReaderPlugIn::splitText(const std::string& text,
                                                            const std::string& separator) {
  const std::string& cut = separator.empty() ? std::string("\n") : separator;
  std::vector<std::string> pieces;
  std::size_t start = 0;
  for (std::size_t at = text.find(cut); at != std::string::npos; at = text.find(cut, start)) {
    pieces.push_back(text.substr(start, at - start));
    start = at + cut.size();
  }
  pieces.push_back(text.substr(start));
  if (pieces.size() > 1 && pieces.back().empty()) {
    pieces.pop_back();
  }
  return pieces;
}

QVATextFileReaderPlugIn::QVATextFileReaderPlugIn() : QVAPlugIn(patchClass()) {}

bool QVATextFileReaderPlugIn::execute(ExecutionContext& context, double, const Arguments&) {
  const std::string inputPath = inputString("inputPath");
  if (inputPath.empty()) {
    setValueForOutputKey(Value(), "outputLines");
  }
  const std::string path = context.resolvePath(inputPath);
  if (didValueForInputKeyChange("inputPath") || didValueForInputKeyChange("inputSeparator")) {
    loaded = false;
  }
  const std::uint32_t loadMode = inputIndex("inputLoadMode");
  const bool checkFile = loadMode == Poll || (loadMode == Flag && inputBoolean("inputReload"));
  const std::optional<FileAttributes> current =
      checkFile || !loaded ? FileAttributes::read(path) : std::nullopt;
  if (checkFile) {
    loaded = current.has_value() && fileAttributes.has_value() && *current == *fileAttributes;
  }
  if (loaded) {
    return true;
  }
  fileAttributes = current;
  std::string bytes;
  const std::optional<std::string> text =
      xpl_read_file(path, bytes) ? StringEncodings::decodeDetected(bytes) : std::nullopt;
  if (!text) {
    // Tried again at the next execution.
    setValueForOutputKey(Value(), "outputLines");
    return true;
  }
  std::vector<Value> lines;
  for (std::string& piece : splitText(*text, inputString("inputSeparator"))) {
    lines.emplace_back(std::move(piece));
  }
  setValueForOutputKey(Value(Structure::makeArray(std::move(lines))), "outputLines");
  loaded = true;
  return true;
}

}  // namespace qva
