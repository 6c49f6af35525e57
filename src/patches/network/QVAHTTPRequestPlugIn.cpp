#include "patches/network/QVAHTTPRequestPlugIn.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string_view>

#include "framework/StringTrimming.h"
#include "framework/Structure.h"

namespace qva {

namespace {

constexpr double kOnInputChangeOnly = std::numeric_limits<float>::max();
constexpr double kDefaultTimeoutSeconds = 60;

const char* const kRequestInputs[] = {"inputURL",          "inputMethod",  "inputContent",
                                      "inputHeaderFields", "inputTimeout", "inputCachePolicy"};

HTTPCachePolicy cachePolicyForMenuIndex(std::uint32_t index) {
  switch (index) {
    case 1:
      return HTTPCachePolicy::ReturnCacheElseLoad;
    case 2:
      return HTTPCachePolicy::ReturnCacheDontLoad;
    default:
      return HTTPCachePolicy::ReloadIgnoringCache;
  }
}

const char* methodForMenuIndex(std::uint32_t index) {
  switch (index) {
    case 1:
      return "POST";
    case 2:
      return "PUT";
    case 3:
      return "DELETE";
    default:
      return "GET";
  }
}

}  // namespace

const PatchClass& QVAHTTPRequestPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAHTTPRequestPlugIn";
    c.name = "QVA HTTP Request";
    c.description =
        "Sends an HTTP request using the given HTTP method to a given URL.\n\n"
        "\"Header Input Fields\" is a single string containing header fields separated by newlines (Use "
        "Alt+Enter to enter newlines).\n\n"
        "The Content input can be used to send data when Method is set to POST. It is then sent using "
        "'Content-Type: text/plain; charset=\"utf-8\"'.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::Idle;
    c.inputs = {
        PortDescription::port("inputUpdate", PortType::Boolean, "Update"),
        PortDescription::port("inputURL", PortType::String, "URL", Value("http://example.com/")),
        PortDescription::port("inputMethod", PortType::Index, "Method", Value(0u))
            .withMaximum(3)
            .withMenu({"GET", "POST", "PUT", "DELETE"}),
        PortDescription::port("inputContent", PortType::String, "Content (POST only)"),
        PortDescription::port("inputHeaderFields", PortType::String, "Header Fields"),
        PortDescription::port("inputTimeout", PortType::Number, "Timeout", Value(kDefaultTimeoutSeconds))
            .withMinimum(0),
        PortDescription::port("inputCachePolicy", PortType::Index, "Cache Policy")
            .withMaximum(2)
            .withMenu({"Reload Ignoring Local Cache Data", "Return Cache Data, Load if not Cached",
                       "Return Cache Data, Don't Load if not Cached"}),
    };
    c.outputs = {
        PortDescription::port("outputFinished", PortType::Boolean, "Finished"),
        PortDescription::port("outputStatusCode", PortType::Index, "Status Code"),
        PortDescription::port("outputStatusString", PortType::String, "Status String"),
        PortDescription::port("outputContentLength", PortType::Index, "Content Length"),
        PortDescription::port("outputContent", PortType::String, "Content"),
        PortDescription::port("outputHeaderFields", PortType::Structure, "Header Fields"),
        PortDescription::port("outputError", PortType::Boolean, "Error"),
        PortDescription::port("outputErrorDescription", PortType::String, "Error Description"),
    };
    c.sortedPropertyPortKeys = std::vector<std::string>{
        "inputUpdate",        "inputURL",           "inputMethod",           "inputContent",
        "inputHeaderFields",  "inputTimeout",       "inputCachePolicy",      "outputFinished",
        "outputStatusCode",   "outputStatusString", "outputContentLength",   "outputContent",
        "outputHeaderFields", "outputError",        "outputErrorDescription"};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVAHTTPRequestPlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVAHTTPRequestPlugIn::QVAHTTPRequestPlugIn() : QVAPlugIn(patchClass()) {}

QVAHTTPRequestPlugIn::~QVAHTTPRequestPlugIn() {
  setRequest(nullptr);
}

bool QVAHTTPRequestPlugIn::startExecution(ExecutionContext&) {
  return true;
}

double QVAHTTPRequestPlugIn::executionTimeForContext(ExecutionContext&, double time, const Arguments&) {
  if (isSendDue()) {
    return time;
  }
  if (m_shouldRender) {
    m_shouldRender = false;
    return time;
  }
  return kOnInputChangeOnly;
}

bool QVAHTTPRequestPlugIn::execute(ExecutionContext& context, double, const Arguments&) {
  if (isSendDue()) {
    m_finishedLoading = false;
    if (inputString("inputURL").empty()) {
      resetOutputsIncludingErrors(true);
      return true;
    }
    send(context);
  }
  checkResult();
  return true;
}

void QVAHTTPRequestPlugIn::disableExecution(ExecutionContext&) {
  setRequest(nullptr);
}

void QVAHTTPRequestPlugIn::stopExecution(ExecutionContext&) {
  setRequest(nullptr);
}

bool QVAHTTPRequestPlugIn::isSendDue() const {
  if (didValueForInputKeyChange("inputUpdate") && inputBoolean("inputUpdate")) {
    return true;
  }
  return std::any_of(std::begin(kRequestInputs), std::end(kRequestInputs),
                     [this](const char* key) { return didValueForInputKeyChange(key); });
}

void QVAHTTPRequestPlugIn::send(ExecutionContext& context) {
  setValueForOutputKey(Value(false), "outputFinished");
  auto request = std::make_shared<HTTPRequest>(inputString("inputURL"));
  const double timeout = inputNumber("inputTimeout");
  setRequest(request);
  const auto finished = [this] {
    m_finishedLoading = true;
    m_shouldRender = true;
  };
  request->setCompletionCallback(finished);
  request->setFailureCallback(finished);
  request->setTimeOutSeconds(timeout < 0 ? kDefaultTimeoutSeconds : timeout);
  request->setCachePolicy(cachePolicyForMenuIndex(inputIndex("inputCachePolicy")));

  const std::string headerFields = inputString("inputHeaderFields");
  std::size_t lineStart = 0;
  while (lineStart <= headerFields.size()) {
    const std::size_t lineEnd = std::min(headerFields.find_first_of("\r\n", lineStart), headerFields.size());
    const std::string line = headerFields.substr(lineStart, lineEnd - lineStart);
    lineStart = lineEnd + 1;
    if (line.empty()) {
      continue;
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos || colon == line.size() - 1) {
      logMessage("Invalid header field line ignored: " + line);
      continue;
    }
    std::string name = trimmed(std::string_view(line).substr(0, colon), " \t");
    std::string value = trimmed(std::string_view(line).substr(colon + 1), " \t");
    if (!name.empty() && !value.empty()) {
      request->addRequestHeader(std::move(name), std::move(value));
    }
  }

  const std::string method = methodForMenuIndex(inputIndex("inputMethod"));
  request->setRequestMethod(method);
  const std::string content = inputString("inputContent");
  if (method == "POST" && !content.empty()) {
    request->setPostBody(content);
    request->addRequestHeader("Content-Type", "text/plain; charset=\"utf-8\"");
  }
  request->startAsynchronous(context.mainThreadQueue());
}

void QVAHTTPRequestPlugIn::checkResult() {
  const std::shared_ptr<HTTPRequest> current = request();
  if (current == nullptr) {
    return;
  }
  if (const auto error = current->error()) {
    logMessage("Error loading URL: " + current->url() + "\n" + *error);
    resetOutputsIncludingErrors(false);
    m_finishedLoading = false;
    setValueForOutputKey(Value(true), "outputError");
    setValueForOutputKey(Value(*error), "outputErrorDescription");
    setRequest(nullptr);
    return;
  }
  if (!m_finishedLoading) {
    return;
  }
  m_finishedLoading = false;
  const HTTPResponse response = current->response();
  // An absent Content-Length counts as 0, so a chunked body shows as empty.
  const auto contentLength = static_cast<std::uint32_t>(std::clamp<std::int64_t>(
      response.announcedContentLength, 0, std::numeric_limits<std::uint32_t>::max()));
  auto headers = std::make_shared<Structure>();
  for (const auto& [name, value] : response.headers) {
    headers->set(name, Value(value));
  }
  setValueForOutputKey(Value(false), "outputError");
  setValueForOutputKey(Value(""), "outputErrorDescription");
  setValueForOutputKey(Value(true), "outputFinished");
  setValueForOutputKey(Value(static_cast<std::uint32_t>(std::max(response.statusCode, 0L))),
                       "outputStatusCode");
  setValueForOutputKey(Value(HTTPResponse::reasonPhrase(response.statusCode)), "outputStatusString");
  setValueForOutputKey(Value(contentLength), "outputContentLength");
  setValueForOutputKey(Value(StructureRef(std::move(headers))), "outputHeaderFields");
  setValueForOutputKey(contentLength != 0 ? Value(response.bodyString()) : Value(""), "outputContent");
  setRequest(nullptr);
}

void QVAHTTPRequestPlugIn::resetOutputsIncludingErrors(bool includingErrors) {
  setValueForOutputKey(Value(false), "outputFinished");
  setValueForOutputKey(Value(0u), "outputStatusCode");
  setValueForOutputKey(Value(), "outputStatusString");
  setValueForOutputKey(Value(), "outputHeaderFields");
  setValueForOutputKey(Value(), "outputContent");
  setValueForOutputKey(Value(0u), "outputContentLength");
  if (includingErrors) {
    setValueForOutputKey(Value(false), "outputError");
    setValueForOutputKey(Value(), "outputErrorDescription");
  }
}

void QVAHTTPRequestPlugIn::setRequest(std::shared_ptr<HTTPRequest> request) {
  std::lock_guard lock(m_requestLock);
  if (request == m_request) {
    return;
  }
  if (m_request != nullptr) {
    m_request->clearCallbacks();
    m_request->cancel();
  }
  m_request = std::move(request);
}

std::shared_ptr<HTTPRequest> QVAHTTPRequestPlugIn::request() const {
  std::lock_guard lock(m_requestLock);
  return m_request;
}

}  // namespace qva
