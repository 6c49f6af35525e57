#include "foundation/psd/PsdPlaneDecoder.h"

#include <zlib.h>

#include <cstring>
#include <limits>
#include <string>

#include "foundation/psd/PackBits.h"
#include "foundation/psd/PsdByteReader.h"
#include "foundation/psd/PsdFormatError.h"

namespace qva {

namespace {

// Deflate never expands data by more than about this factor, so larger claims are lies.
constexpr std::size_t kMaximumDeflateRatio = 1032;

std::size_t checkedProduct(std::size_t a, std::size_t b) {
  if (a != 0 && b > std::numeric_limits<std::size_t>::max() / a) {
    throw PsdFormatError("channel size overflows");
  }
  return a * b;
}

// One plane's rows, each rowBytes long, reduced to 8-bit samples in place of the planes' storage.
std::vector<std::uint8_t> reducedPlane(const std::uint8_t* samples, const PsdPlaneDecoder::Layout& layout) {
  const std::size_t count = layout.width * layout.height;
  if (layout.depth == 8) {
    return std::vector<std::uint8_t>(samples, samples + count);
  }
  std::vector<std::uint8_t> plane(count);
  for (std::size_t i = 0; i < count; ++i) {
    plane[i] =
        PsdPlaneDecoder::reduceSample(static_cast<std::uint16_t>(samples[2 * i] << 8 | samples[2 * i + 1]));
  }
  return plane;
}

std::vector<std::vector<std::uint8_t>> decodeRaw(std::span<const std::uint8_t> data, std::size_t planeBytes,
                                                 const PsdPlaneDecoder::Layout& layout) {
  if (checkedProduct(planeBytes, layout.wantedPlanes) > data.size()) {
    throw PsdFormatError("raw channel data is shorter than its channels");
  }
  std::vector<std::vector<std::uint8_t>> planes;
  for (std::size_t p = 0; p < layout.wantedPlanes; ++p) {
    planes.push_back(reducedPlane(data.data() + p * planeBytes, layout));
  }
  return planes;
}

std::vector<std::vector<std::uint8_t>> decodeRle(std::span<const std::uint8_t> data, std::size_t rowBytes,
                                                 const PsdPlaneDecoder::Layout& layout) {
  const std::size_t rows = checkedProduct(layout.height, layout.storedPlanes);
  PsdByteReader reader(data);
  PsdByteReader table = reader.section(checkedProduct(rows, 2), "table of compressed row lengths");
  std::vector<std::uint32_t> offsets(rows + 1, 0);
  std::uint64_t total = 0;
  for (std::size_t row = 0; row < rows; ++row) {
    total += table.u16("table of compressed row lengths");
    offsets[row + 1] = static_cast<std::uint32_t>(std::min<std::uint64_t>(total, UINT32_MAX));
  }
  if (total > reader.remaining()) {
    throw PsdFormatError("compressed rows run past the end of their channel");
  }
  const std::size_t wantedRows = layout.height * layout.wantedPlanes;
  if (offsets[wantedRows] < checkedProduct(wantedRows, minimumPackedBytes(rowBytes))) {
    throw PsdFormatError("compressed rows are too short to fill their channel");
  }
  const std::span<const std::uint8_t> packed =
      reader.bytes(static_cast<std::size_t>(total), "compressed rows");
  std::vector<std::uint8_t> samples(rowBytes * layout.height);
  std::vector<std::vector<std::uint8_t>> planes;
  for (std::size_t p = 0; p < layout.wantedPlanes; ++p) {
    for (std::size_t y = 0; y < layout.height; ++y) {
      const std::size_t row = p * layout.height + y;
      const auto rowData = packed.subspan(offsets[row], offsets[row + 1] - offsets[row]);
      if (!unpackBits(rowData, std::span(samples.data() + y * rowBytes, rowBytes))) {
        throw PsdFormatError("a compressed row does not fill its row exactly");
      }
    }
    planes.push_back(reducedPlane(samples.data(), layout));
  }
  return planes;
}

// Undoes horizontal differencing: each sample was stored as its difference to the one on its left.
void undoPrediction(std::vector<std::uint8_t>& samples, std::size_t rowBytes, int depth) {
  for (std::size_t start = 0; start + rowBytes <= samples.size(); start += rowBytes) {
    std::uint8_t* row = samples.data() + start;
    if (depth == 8) {
      for (std::size_t x = 1; x < rowBytes; ++x) {
        row[x] = static_cast<std::uint8_t>(row[x] + row[x - 1]);
      }
    } else {
      for (std::size_t x = 2; x + 1 < rowBytes; x += 2) {
        const auto value =
            static_cast<std::uint16_t>((row[x] << 8 | row[x + 1]) + (row[x - 2] << 8 | row[x - 1]));
        row[x] = static_cast<std::uint8_t>(value >> 8);
        row[x + 1] = static_cast<std::uint8_t>(value);
      }
    }
  }
}

std::vector<std::vector<std::uint8_t>> decodeZip(std::span<const std::uint8_t> data, std::size_t rowBytes,
                                                 bool predicted, const PsdPlaneDecoder::Layout& layout) {
  const std::size_t planeBytes = checkedProduct(rowBytes, layout.height);
  const std::size_t expected = checkedProduct(planeBytes, layout.storedPlanes);
  if (expected / kMaximumDeflateRatio > data.size()) {
    throw PsdFormatError("deflated channel data is too short for its channels");
  }
  std::vector<std::uint8_t> samples(expected);
  uLongf length = static_cast<uLongf>(expected);
  const int status = uncompress(samples.data(), &length, data.data(), static_cast<uLong>(data.size()));
  if (status != Z_OK || length != expected) {
    throw PsdFormatError("deflated channel data is damaged or does not fill its channels");
  }
  if (predicted) {
    undoPrediction(samples, rowBytes, layout.depth);
  }
  std::vector<std::vector<std::uint8_t>> planes;
  for (std::size_t p = 0; p < layout.wantedPlanes; ++p) {
    planes.push_back(reducedPlane(samples.data() + p * planeBytes, layout));
  }
  return planes;
}

}  // namespace

std::vector<std::vector<std::uint8_t>> PsdPlaneDecoder::decode(std::span<const std::uint8_t> data,
                                                               std::uint16_t compression,
                                                               const Layout& layout) {
  if (layout.wantedPlanes > layout.storedPlanes) {
    throw PsdFormatError("too few channels stored");
  }
  const std::size_t rowBytes = checkedProduct(layout.width, static_cast<std::size_t>(layout.depth / 8));
  switch (compression) {
    case Raw:
      return decodeRaw(data, checkedProduct(rowBytes, layout.height), layout);
    case Rle:
      return decodeRle(data, rowBytes, layout);
    case Zip:
    case ZipPredicted:
      return decodeZip(data, rowBytes, compression == ZipPredicted, layout);
    default:
      throw PsdFormatError("unknown channel compression " + std::to_string(compression));
  }
}

}  // namespace qva
