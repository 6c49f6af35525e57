#pragma once

#include <memory>
#include <mutex>

#include "foundation/http/HTTPRequest.h"
#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA HTTP Request": sends one request whenever an input changes or "Update" rises, and shows the
// response (status, headers, body as text) or the error on its outputs.
class QVAHTTPRequestPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  QVAHTTPRequestPlugIn();
  ~QVAHTTPRequestPlugIn() override;

  bool startExecution(ExecutionContext& context) override;
  double executionTimeForContext(ExecutionContext& context, double time, const Arguments& arguments) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
  void disableExecution(ExecutionContext& context) override;
  void stopExecution(ExecutionContext& context) override;

  bool finishedLoading() const { return m_finishedLoading; }
  bool shouldRender() const { return m_shouldRender; }

 private:
  bool isSendDue() const;
  void send(ExecutionContext& context);
  void checkResult();
  void resetOutputsIncludingErrors(bool includingErrors);
  // Replaces the request in flight, cancelling the old one so that it never reports.
  void setRequest(std::shared_ptr<HTTPRequest> request);
  std::shared_ptr<HTTPRequest> request() const;

  bool m_finishedLoading = false;
  bool m_shouldRender = false;
  mutable std::mutex m_requestLock;
  std::shared_ptr<HTTPRequest> m_request;
};

}  // namespace qva
