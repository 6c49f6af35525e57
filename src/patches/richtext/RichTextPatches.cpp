#include "patches/richtext/RichTextPatches.h"

#include "framework/PatchRegistry.h"
#include "patches/richtext/Image_With_RTF_StringPlugIn.h"
#include "patches/richtext/RTF_File_ReaderPlugIn.h"
#include "patches/richtext/RTF_File_to_ImagePlugIn.h"
#include "patches/richtext/RTF_String_CheckerPlugIn.h"
#include "patches/richtext/RTF_String_LengthPlugIn.h"
#include "patches/richtext/RTF_String_PrinterPlugIn.h"
#include "patches/richtext/RTF_String_SubrangePlugIn.h"
#include "patches/richtext/RTF_String_With_StringPlugIn.h"
#include "patches/richtext/RTF_String_to_Plain_TextPlugIn.h"
#include "patches/richtext/RTF_StylePlugIn.h"

namespace qva {

void registerRichTextPatches(PatchRegistry& registry) {
  registry.add(RTF_StylePlugIn::patchClass());
  registry.add(RTF_String_PrinterPlugIn::patchClass());
  registry.add(RTF_String_CheckerPlugIn::patchClass());
  registry.add(RTF_String_LengthPlugIn::patchClass());
  registry.add(RTF_String_SubrangePlugIn::patchClass());
  registry.add(RTF_String_With_StringPlugIn::patchClass());
  registry.add(RTF_String_to_Plain_TextPlugIn::patchClass());
  registry.add(Image_With_RTF_StringPlugIn::patchClass());
  registry.add(RTF_File_ReaderPlugIn::patchClass());
  registry.add(RTF_File_to_ImagePlugIn::patchClass());
}

}  // namespace qva
