#include <gtest/gtest.h>
#include <zlib.h>

#include "foundation/psd/PsdFormatError.h"
#include "foundation/psd/PsdPlaneDecoder.h"

namespace qva {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(PsdPlaneDecoderTest, DecodesOnlyTheWantedPlanesOfRleData) {
  // Two planes of 3 × 1: a table of two row lengths, then the rows.
  const Bytes data{0x00, 0x02, 0x00, 0x04, 0xFE, 0x05, 0x02, 0x01, 0x02, 0x03};
  const auto planes = PsdPlaneDecoder::decode(data, PsdPlaneDecoder::Rle, {3, 1, 8, 2, 2});
  ASSERT_EQ(planes.size(), 2u);
  EXPECT_EQ(planes[0], (Bytes{5, 5, 5}));
  EXPECT_EQ(planes[1], (Bytes{1, 2, 3}));
  EXPECT_EQ(PsdPlaneDecoder::decode(data, PsdPlaneDecoder::Rle, {3, 1, 8, 2, 1}).size(), 1u);
}

TEST(PsdPlaneDecoderTest, ReducesSixteenBitSamplesToTheNearestEightBitValue) {
  const Bytes data{0xFF, 0xFF, 0x00, 0x00, 0x80, 0x00, 0x01, 0x01};
  const auto planes = PsdPlaneDecoder::decode(data, PsdPlaneDecoder::Raw, {4, 1, 16, 1, 1});
  EXPECT_EQ(planes.at(0), (Bytes{255, 0, 128, 1}));
}

TEST(PsdPlaneDecoderTest, UndoesPredictionOfDeflatedRows) {
  const Bytes deltas{10, 5, 5, 20, 1, 1};  // two rows of three: 10 15 20 and 20 21 22
  uLongf length = compressBound(deltas.size());
  Bytes data(length);
  ASSERT_EQ(compress(data.data(), &length, deltas.data(), deltas.size()), Z_OK);
  data.resize(length);
  const auto planes = PsdPlaneDecoder::decode(data, PsdPlaneDecoder::ZipPredicted, {3, 2, 8, 1, 1});
  EXPECT_EQ(planes.at(0), (Bytes{10, 15, 20, 20, 21, 22}));
}

TEST(PsdPlaneDecoderTest, RefusesDataThatCannotHoldWhatItClaims) {
  const auto refuses = [](const Bytes& data, std::uint16_t compression, PsdPlaneDecoder::Layout layout) {
    EXPECT_THROW(PsdPlaneDecoder::decode(data, compression, layout), PsdFormatError);
  };
  refuses({1, 2, 3}, PsdPlaneDecoder::Raw, {2, 2, 8, 1, 1});                 // raw data short
  refuses({0x00, 0x02, 0xF7, 0x55}, PsdPlaneDecoder::Rle, {4, 1, 8, 1, 1});  // a run of ten into four
  refuses({0x00, 0x09, 0xFD, 0x55}, PsdPlaneDecoder::Rle, {4, 1, 8, 1, 1});  // row length past the end
  refuses({0x00}, PsdPlaneDecoder::Rle, {4, 1, 8, 1, 1});                    // table cut short
  // A row length table of a huge plane whose rows are far too short to fill it: refused before the
  // plane is allocated.
  refuses({0x00, 0x02, 0x81, 0x00}, PsdPlaneDecoder::Rle, {30000, 1, 8, 1, 1});
  refuses({0x78, 0x9C, 0x03, 0x00}, PsdPlaneDecoder::Zip, {20000, 20000, 8, 1, 1});  // claims far too much
  refuses({0x78, 0x9C, 0x03, 0x00, 0x00, 0x00, 0x00, 0x01}, PsdPlaneDecoder::Zip, {2, 2, 8, 1, 1});
  refuses({0, 0, 0, 0}, 7, {2, 2, 8, 1, 1});
  refuses({0, 0, 0, 0}, PsdPlaneDecoder::Raw, {1, 1, 8, 1, 2});
}

}  // namespace
}  // namespace qva
