#include "patches/files/QVAPathInfoPlugIn.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cstring>
#include <limits>
#include <vector>

#include "foundation/files/FileAttributes.h"
#include "foundation/files/TildeExpansion.h"
#include "framework/StringFormat.h"

namespace qva {

namespace {

constexpr double kOnInputChangeOnly = std::numeric_limits<float>::max();
constexpr double kUpdateInterval = 0.5;
// Seconds from the Unix epoch to 2001-01-01 00:00:00 UTC, the reference date of the date outputs.
constexpr double kReferenceDateOffset = 978307200.0;

double referenceDate(std::int64_t seconds, std::uint32_t nanoseconds) {
  return static_cast<double>(seconds) - kReferenceDateOffset + nanoseconds / 1e9;
}

std::vector<char> lookupBuffer() {
  const long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  return std::vector<char>(size > 0 ? static_cast<std::size_t>(size) : 16384);
}

std::string accountName(uid_t uid) {
  std::vector<char> buffer = lookupBuffer();
  passwd entry{};
  passwd* found = nullptr;
  return ::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr
             ? found->pw_name
             : std::string();
}

std::string groupName(gid_t gid) {
  std::vector<char> buffer = lookupBuffer();
  group entry{};
  group* found = nullptr;
  return ::getgrgid_r(gid, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr
             ? found->gr_name
             : std::string();
}

}  // namespace

const PatchClass& QVAPathInfoPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAPathInfoPlugIn";
    c.name = "QVA Path Info";
    c.description = "Outputs information for a file or folder at the given path";
    c.executionMode = ExecutionMode::Provider;
    c.timeMode = TimeMode::Idle;
    c.inputs = {PortDescription::port("inputPath", PortType::String, "Path")};
    c.outputs = {
        PortDescription::port("outputIsDirectory", PortType::Boolean, "Is Directory"),
        PortDescription::port("outputIsReadable", PortType::Boolean, "Is Readable"),
        PortDescription::port("outputIsWritable", PortType::Boolean, "Is Writable"),
        PortDescription::port("outputIsExecutable", PortType::Boolean, "Is Executable"),
        PortDescription::port("outputIsSymbolicLink", PortType::Boolean, "Is SymbolicLink"),
        PortDescription::port("outputFullPath", PortType::String, "Full Path"),
        PortDescription::port("outputCreationDate", PortType::Number, "Creation Date"),
        PortDescription::port("outputModificationDate", PortType::Number, "Modification Date"),
        PortDescription::port("outputOwner", PortType::String, "Owner"),
        PortDescription::port("outputGroup", PortType::String, "Group"),
        PortDescription::port("outputSize", PortType::Index, "Size"),
    };
    c.sortedPropertyPortKeys =
        std::vector<std::string>{"inputPath",        "outputIsDirectory",  "outputIsReadable",
                                 "outputIsWritable", "outputIsExecutable", "outputIsSymbolicLink",
                                 "outputFullPath",   "outputCreationDate", "outputModificationDate",
                                 "outputOwner",      "outputGroup",        "outputSize"};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVAPathInfoPlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVAPathInfoPlugIn::QVAPathInfoPlugIn() : QVAPlugIn(patchClass()) {}

double QVAPathInfoPlugIn::executionTimeForContext(ExecutionContext&, double time, const Arguments&) {
  return time - _lastUpdateTime > kUpdateInterval ? time : kOnInputChangeOnly;
}

bool QVAPathInfoPlugIn::execute(ExecutionContext&, double time, const Arguments&) {
  _lastUpdateTime = time;
  // The path is examined as given: neither "~" nor the composition's folder applies to it.
  const std::string path = inputString("inputPath");
  const std::optional<FileAttributes> target = FileAttributes::read(path, true);
  if (!target) {
    resetOutputPorts();
    return true;
  }
  const std::optional<FileAttributes> item = FileAttributes::read(path, false);
  if (!item) {
    logMessage(formatString("Error while getting attributes of item at path: %s: %s", path.c_str(),
                            std::strerror(errno)));
    resetOutputPorts();
    return true;
  }
  setValueForOutputKey(Value(target->isDirectory()), "outputIsDirectory");
  setValueForOutputKey(Value(::access(path.c_str(), R_OK) == 0), "outputIsReadable");
  setValueForOutputKey(Value(::access(path.c_str(), W_OK) == 0), "outputIsWritable");
  setValueForOutputKey(Value(::access(path.c_str(), X_OK) == 0), "outputIsExecutable");
  setValueForOutputKey(Value(item->isSymbolicLink()), "outputIsSymbolicLink");
  setValueForOutputKey(Value(expandingTildeInPath(path)), "outputFullPath");
  setValueForOutputKey(
      Value(item->birthSeconds ? referenceDate(*item->birthSeconds, item->birthNanoseconds) : 0.0),
      "outputCreationDate");
  setValueForOutputKey(Value(referenceDate(item->modificationSeconds, item->modificationNanoseconds)),
                       "outputModificationDate");
  setValueForOutputKey(Value(accountName(item->owner)), "outputOwner");
  setValueForOutputKey(Value(groupName(item->group)), "outputGroup");
  // The Index port keeps the low 32 bits of larger sizes.
  setValueForOutputKey(Value(static_cast<std::uint32_t>(item->size)), "outputSize");
  return true;
}

void QVAPathInfoPlugIn::resetOutputPorts() {
  for (const char* key : {"outputIsDirectory", "outputIsReadable", "outputIsWritable", "outputIsExecutable",
                          "outputIsSymbolicLink"}) {
    setValueForOutputKey(Value(false), key);
  }
  for (const char* key : {"outputFullPath", "outputOwner", "outputGroup"}) {
    setValueForOutputKey(Value(""), key);
  }
  setValueForOutputKey(Value(0.0), "outputCreationDate");
  setValueForOutputKey(Value(0.0), "outputModificationDate");
  setValueForOutputKey(Value(std::uint32_t{0}), "outputSize");
}

}  // namespace qva
