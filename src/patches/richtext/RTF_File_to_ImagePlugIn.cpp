#include "patches/richtext/RTF_File_to_ImagePlugIn.h"

#include "foundation/documents/DocumentReader.h"
#include "foundation/text/TextLayout.h"
#include "patches/richtext/RichTextBitmap.h"

namespace qva {

const PatchClass& RTF_File_to_ImagePlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "RTF_File_to_ImagePlugIn";
    c.name = "RTF File to Image";
    c.description =
        "This patch renders the contents of an RTF file directly to an image.\n\nSupported file formats: "
        "Plain "
        "Text, RTF, RTF with Attachments (.rtfd), Mac Simple Text, HTML, Word 97 (.doc), Word 2003 (.xml), "
        "Word "
        "2007 (.docx) and Open Document Format (.odt)";
    c.executionMode = ExecutionMode::Provider;
    c.timeMode = TimeMode::None;
    c.inputs = {
        PortDescription::port("inputUpdateSignal", PortType::Boolean, "Update Signal"),
        PortDescription::port("inputPath", PortType::String, "Path"),
        PortDescription::port("inputWidth", PortType::Index, "Width", Value(400u)),
        PortDescription::port("inputHeight", PortType::Index, "Height", Value(400u)),
    };
    c.outputs = {PortDescription::port("outputImage", PortType::Image, "Image")};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<RTF_File_to_ImagePlugIn>(); };
    return c;
  }();
  return patchClass;
}

RTF_File_to_ImagePlugIn::RTF_File_to_ImagePlugIn() : QVAPlugIn(patchClass()) {}

ImageRef RTF_File_to_ImagePlugIn::imageForContext(const ExecutionContext& context) const {
  const std::uint32_t width = inputIndex("inputWidth");
  const std::uint32_t height = inputIndex("inputHeight");
  std::optional<Bitmap> bitmap =
      RichTextBitmap::allocate(width, height, context, "[RTF_File_to_ImagePlugIn imageForContext:]");
  if (!bitmap) {
    return nullptr;
  }
  TextLayout(*document, {static_cast<double>(width), static_cast<double>(height)})
      .draw(*bitmap, 0, 0, context.outputScale());
  return std::move(*bitmap).toImage(context.outputScale());
}

bool RTF_File_to_ImagePlugIn::execute(ExecutionContext& context, double, const Arguments&) {
  const bool rising = didValueForInputKeyChange("inputUpdateSignal") && inputBoolean("inputUpdateSignal");
  if (document && !didValueForInputKeyChange("inputPath") && !rising) {
    // The height's key is misspelt here, as it always was: a new height alone does not draw again.
    if (didValueForInputKeyChange("inputWidth") || didValueForInputKeyChange("inputHeigth")) {
      setValueForOutputKey(Value(imageForContext(context)), "outputImage");
    }
    return true;
  }
  const std::string path = inputString("inputPath");
  DocumentReader::Result loaded =
      path.empty() ? DocumentReader::Result{} : DocumentReader::readFile(context.resolvePath(path));
  document = std::move(loaded.text);
  if (!document) {
    if (failures_.isNew(loaded.failure)) {
      logMessage("RTF File to Image: " + loaded.failure);
    }
    setValueForOutputKey(Value(), "outputImage");
    return true;
  }
  failures_.clear();
  setValueForOutputKey(Value(imageForContext(context)), "outputImage");
  return true;
}

}  // namespace qva
