#pragma once

#include <thread>

#include "foundation/xml/QVAXMLPlugInDocument.h"

namespace qva {

// A document user for the XML tests that remembers what it was handed and on which thread.
struct RecordingReader final : XmlDocumentUser {
  void documentDidLoad(QVAXMLPlugInDocument& document) override {
    ++deliveries;
    xml = document.xml();
    thread = std::this_thread::get_id();
  }
  int deliveries = 0;
  XmlDocumentRef xml;
  std::thread::id thread;
};

}  // namespace qva
