#pragma once

namespace qva {

class QVAXMLPlugInDocument;

// What a document tells the patches that read it. Documents hold users without owning them: a user
// removes itself from every document before it goes away.
class XmlDocumentUser {
 public:
  // A load finished (on the host thread); the document's xml() is its result, null after a failure.
  virtual void documentDidLoad(QVAXMLPlugInDocument& document) = 0;

 protected:
  ~XmlDocumentUser() = default;
};

}  // namespace qva
