#include "foundation/image/ImageDecoder.h"

// clang-format off
#include <cstdio>  // jpeglib.h uses FILE without declaring it
#include <jpeglib.h>
// clang-format on

#include <gif_lib.h>
#include <jerror.h>
#include <png.h>
#include <tiffio.h>
#include <webp/decode.h>
#include <webp/demux.h>

#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string_view>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

namespace qva {

namespace {

using Result = ImageDecoder::Result;
using RowBytesRule = ImageDecoder::RowBytesRule;

Result failure(std::string error) {
  return Result{std::nullopt, std::move(error)};
}

// A bitmap of the decoded size, or an error for sizes the system refuses.
Result allocateFor(long width, long height, RowBytesRule rowBytes, std::string_view format) {
  if (width <= 0 || height <= 0) {
    return failure(std::string(format) + " image has no pixels");
  }
  if (static_cast<std::size_t>(width) * static_cast<std::size_t>(height) > ImageDecoder::maximumPixels) {
    Result refused = failure(std::string(format) + " image of " + std::to_string(width) + "x" +
                             std::to_string(height) + " pixels is too large");
    refused.tooLarge = true;
    return refused;
  }
  auto bitmap = Bitmap::allocate(static_cast<int>(width), static_cast<int>(height),
                                 rowBytes(static_cast<std::size_t>(width)));
  if (!bitmap) {
    return failure("out of memory for a " + std::to_string(width) + "x" + std::to_string(height) + " image");
  }
  return Result{std::move(bitmap), {}};
}

Result decodePng(const std::uint8_t* data, std::size_t size, RowBytesRule rowBytes) {
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_memory(&image, data, size)) {
    return failure(std::string("damaged PNG data: ") + image.message);
  }
  image.format = PNG_FORMAT_BGRA;
  Result result = allocateFor(image.width, image.height, rowBytes, "PNG");
  if (!result.bitmap) {
    png_image_free(&image);
    return result;
  }
  Bitmap& bitmap = *result.bitmap;
  if (!png_image_finish_read(&image, nullptr, bitmap.bytes(), static_cast<png_int_32>(bitmap.rowBytes()),
                             nullptr)) {
    return failure(std::string("damaged PNG data: ") + image.message);
  }
  bitmap.premultiply();
  return result;
}

struct JpegDecoder {
  jpeg_decompress_struct info{};
  jpeg_error_mgr errors{};
  std::jmp_buf escape{};
  char message[JMSG_LENGTH_MAX] = {};
  Result result;
};

[[noreturn]] void jpegFail(j_common_ptr info) {
  auto* decoder = static_cast<JpegDecoder*>(info->client_data);
  (*info->err->format_message)(info, decoder->message);
  std::longjmp(decoder->escape, 1);
}

// A truncated file, or one whose coded data stops at a marker before its last block, only raises a
// warning in the library (which fills the rest with grey); both are errors here.
void jpegMessage(j_common_ptr info, int level) {
  const int code = info->err->msg_code;
  if (level < 0 && (code == JWRN_JPEG_EOF || code == JWRN_HIT_MARKER)) {
    jpegFail(info);
  }
}

Result decodeJpeg(const std::uint8_t* data, std::size_t size, RowBytesRule rowBytes) {
  // Everything the error escape touches lives behind this pointer, which is set before setjmp.
  const auto decoder = std::make_unique<JpegDecoder>();
  decoder->info.err = jpeg_std_error(&decoder->errors);
  decoder->errors.error_exit = jpegFail;
  decoder->errors.emit_message = jpegMessage;
  decoder->info.client_data = decoder.get();
  if (setjmp(decoder->escape) != 0) {
    jpeg_destroy_decompress(&decoder->info);
    return failure(std::string("damaged JPEG data: ") + decoder->message);
  }
  jpeg_create_decompress(&decoder->info);
  jpeg_mem_src(&decoder->info, data, static_cast<unsigned long>(size));
  jpeg_read_header(&decoder->info, TRUE);
  decoder->info.out_color_space = JCS_EXT_BGRA;
  decoder->result = allocateFor(decoder->info.image_width, decoder->info.image_height, rowBytes, "JPEG");
  if (!decoder->result.bitmap) {
    jpeg_destroy_decompress(&decoder->info);
    return std::move(decoder->result);
  }
  jpeg_start_decompress(&decoder->info);
  while (decoder->info.output_scanline < decoder->info.output_height) {
    JSAMPROW row = decoder->result.bitmap->row(static_cast<int>(decoder->info.output_scanline));
    jpeg_read_scanlines(&decoder->info, &row, 1);
  }
  jpeg_finish_decompress(&decoder->info);
  jpeg_destroy_decompress(&decoder->info);
  return std::move(decoder->result);
}

struct MemoryFile {
  const std::uint8_t* data;
  std::size_t size;
  std::size_t position;
};

tmsize_t tiffRead(thandle_t handle, void* buffer, tmsize_t count) {
  auto* file = static_cast<MemoryFile*>(handle);
  const std::size_t available = file->position < file->size ? file->size - file->position : 0;
  const std::size_t n = std::min(static_cast<std::size_t>(count), available);
  std::memcpy(buffer, file->data + file->position, n);
  file->position += n;
  return static_cast<tmsize_t>(n);
}

tmsize_t tiffWrite(thandle_t, void*, tmsize_t) {
  return -1;
}

toff_t tiffSeek(thandle_t handle, toff_t offset, int whence) {
  auto* file = static_cast<MemoryFile*>(handle);
  const std::size_t base = whence == SEEK_CUR ? file->position : whence == SEEK_END ? file->size : 0;
  file->position = base + offset;
  return file->position;
}

int tiffClose(thandle_t) {
  return 0;
}
toff_t tiffSize(thandle_t handle) {
  return static_cast<MemoryFile*>(handle)->size;
}
int tiffMap(thandle_t, void**, toff_t*) {
  return 0;
}
void tiffUnmap(thandle_t, void*, toff_t) {}

// The bytes of all the picture's coded strips or tiles, or none when there are none, or one is empty or
// lies outside the data. A damaged directory can claim a picture far larger than the file holds; it is
// refused before anything that size is made.
std::optional<std::uint64_t> codedBytesWithinData(TIFF* tiff, std::size_t size) {
  const std::uint32_t count = TIFFIsTiled(tiff) ? TIFFNumberOfTiles(tiff) : TIFFNumberOfStrips(tiff);
  std::uint64_t coded = 0;
  for (std::uint32_t index = 0; index < count; ++index) {
    const std::uint64_t offset = TIFFGetStrileOffset(tiff, index);
    const std::uint64_t length = TIFFGetStrileByteCount(tiff, index);
    if (length == 0 || offset > size || length > size - offset) {
      return std::nullopt;
    }
    coded += length;
  }
  return count > 0 ? std::optional(coded) : std::nullopt;
}

// The most bytes that one byte of coded data can give back, for the codings where that is bounded:
// PackBits repeats a byte at most 128 times for two bytes of code, deflate gives at most 1032 bytes a
// byte, and an LZW code of at least 9 bits stands for at most 4096 bytes.
std::optional<std::uint64_t> largestExpansion(std::uint16_t compression) {
  switch (compression) {
    case COMPRESSION_NONE:
      return 1;
    case COMPRESSION_PACKBITS:
      return 64;
    case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_DEFLATE:
      return 1032;
    case COMPRESSION_LZW:
      return 4096;
    default:
      return std::nullopt;
  }
}

// Whether that many coded bytes could hold the whole picture. A few hundred bytes that claim a gigabyte
// picture would otherwise be made, cleared and decoded before the missing data shows.
bool codedBytesCanHoldPicture(TIFF* tiff, std::uint64_t coded, std::uint32_t height) {
  std::uint16_t compression = COMPRESSION_NONE;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &compression);
  const auto expansion = largestExpansion(compression);
  if (!expansion) {
    return true;
  }
  std::uint16_t planar = PLANARCONFIG_CONTIG;
  std::uint16_t samples = 1;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &planar);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
  const std::uint64_t planes = planar == PLANARCONFIG_SEPARATE ? samples : 1;
  const std::uint64_t decoded = TIFFIsTiled(tiff) ? TIFFTileSize64(tiff) * TIFFNumberOfTiles(tiff)
                                                  : TIFFScanlineSize64(tiff) * height * planes;
  // The coded bytes lie within the data, so the product stays far from overflowing.
  return decoded <= coded * *expansion;
}

Result decodeTiff(const std::uint8_t* data, std::size_t size, RowBytesRule rowBytes) {
  // The library reports through process-wide handlers; the decoder reports through its result.
  TIFFSetErrorHandler(nullptr);
  TIFFSetWarningHandler(nullptr);
  MemoryFile file{data, size, 0};
  const std::unique_ptr<TIFF, void (*)(TIFF*)> tiff(
      TIFFClientOpen("memory", "rm", &file, tiffRead, tiffWrite, tiffSeek, tiffClose, tiffSize, tiffMap,
                     tiffUnmap),
      TIFFClose);
  if (!tiff) {
    return failure("damaged TIFF data");
  }
  const auto coded = codedBytesWithinData(tiff.get(), size);
  if (!coded) {
    return failure("damaged TIFF data: the picture's strips lie outside the file");
  }
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &width);
  TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &height);
  if (!codedBytesCanHoldPicture(tiff.get(), *coded, height)) {
    return failure("damaged TIFF data: the picture is larger than its strips can hold");
  }
  Result result = allocateFor(width, height, rowBytes, "TIFF");
  if (!result.bitmap) {
    return result;
  }
  std::vector<std::uint32_t> raster(static_cast<std::size_t>(width) * height);
  if (!TIFFReadRGBAImageOriented(tiff.get(), width, height, raster.data(), ORIENTATION_TOPLEFT, 1)) {
    return failure("damaged TIFF data");
  }
  // The library hands out associated alpha as R, G, B, A bytes, passing through whatever colour a file
  // that claims associated alpha holds.
  Bitmap& bitmap = *result.bitmap;
  for (std::uint32_t y = 0; y < height; ++y) {
    std::memcpy(bitmap.row(static_cast<int>(y)), raster.data() + static_cast<std::size_t>(y) * width,
                static_cast<std::size_t>(width) * 4);
  }
  bitmap.convertPremultipliedRgba();
  return result;
}

// An animated WebP shows its first frame, composed on the full canvas, as an animated GIF does. The
// bitmap is already the canvas's size, so a damaged size is refused before the library allocates.
bool decodeFirstWebpFrame(const std::uint8_t* data, std::size_t size, Bitmap& bitmap) {
  WebPAnimDecoderOptions options;
  if (!WebPAnimDecoderOptionsInit(&options)) {
    return false;
  }
  options.color_mode = MODE_BGRA;
  const WebPData whole{data, size};
  const auto close = [](WebPAnimDecoder* decoder) { WebPAnimDecoderDelete(decoder); };
  const std::unique_ptr<WebPAnimDecoder, decltype(close)> decoder(WebPAnimDecoderNew(&whole, &options),
                                                                  close);
  WebPAnimInfo info;
  std::uint8_t* frame = nullptr;
  int timestamp = 0;
  if (!decoder || !WebPAnimDecoderGetInfo(decoder.get(), &info) || info.frame_count == 0 ||
      info.canvas_width != static_cast<std::uint32_t>(bitmap.width()) ||
      info.canvas_height != static_cast<std::uint32_t>(bitmap.height()) ||
      !WebPAnimDecoderGetNext(decoder.get(), &frame, &timestamp)) {
    return false;
  }
  const std::size_t length = static_cast<std::size_t>(info.canvas_width) * 4;
  for (int y = 0; y < bitmap.height(); ++y) {
    std::memcpy(bitmap.row(y), frame + static_cast<std::size_t>(y) * length, length);
  }
  return true;
}

Result decodeWebp(const std::uint8_t* data, std::size_t size, RowBytesRule rowBytes) {
  WebPBitstreamFeatures features;
  if (WebPGetFeatures(data, size, &features) != VP8_STATUS_OK) {
    return failure("damaged WebP data");
  }
  // For an animation these are the canvas's width and height.
  Result result = allocateFor(features.width, features.height, rowBytes, "WebP");
  if (!result.bitmap) {
    return result;
  }
  Bitmap& bitmap = *result.bitmap;
  if (features.has_animation
          ? !decodeFirstWebpFrame(data, size, bitmap)
          : WebPDecodeBGRAInto(data, size, bitmap.bytes(),
                               bitmap.rowBytes() * static_cast<std::size_t>(features.height),
                               static_cast<int>(bitmap.rowBytes())) == nullptr) {
    return failure(features.has_animation ? "damaged animated WebP data" : "damaged WebP data");
  }
  bitmap.premultiply();
  return result;
}

int gifRead(GifFileType* gif, GifByteType* buffer, int count) {
  return static_cast<int>(tiffRead(gif->UserData, buffer, count));
}

Result decodeGif(const std::uint8_t* data, std::size_t size, RowBytesRule rowBytes) {
  MemoryFile file{data, size, 0};
  int error = 0;
  const auto close = [](GifFileType* gif) { DGifCloseFile(gif, nullptr); };
  const std::unique_ptr<GifFileType, decltype(close)> gif(DGifOpen(&file, gifRead, &error), close);
  if (!gif || DGifSlurp(gif.get()) != GIF_OK || gif->ImageCount < 1) {
    const int code = gif ? gif->Error : error;
    const char* text = GifErrorString(code);
    return failure(std::string("damaged GIF data: ") + (text != nullptr ? text : "unknown error"));
  }
  const SavedImage& frame = gif->SavedImages[0];
  const GifImageDesc& place = frame.ImageDesc;
  const ColorMapObject* colors = place.ColorMap != nullptr ? place.ColorMap : gif->SColorMap;
  if (colors == nullptr) {
    return failure("damaged GIF data: no colour table");
  }
  const long width = gif->SWidth > 0 ? gif->SWidth : place.Width;
  const long height = gif->SHeight > 0 ? gif->SHeight : place.Height;
  Result result = allocateFor(width, height, rowBytes, "GIF");
  if (!result.bitmap) {
    return result;
  }
  GraphicsControlBlock control{};
  control.TransparentColor = NO_TRANSPARENT_COLOR;
  DGifSavedExtensionToGCB(gif.get(), 0, &control);
  Bitmap& bitmap = *result.bitmap;
  for (int y = 0; y < place.Height; ++y) {
    const long canvasY = place.Top + y;
    if (canvasY < 0 || canvasY >= height) {
      continue;
    }
    std::uint8_t* row = bitmap.row(static_cast<int>(canvasY));
    for (int x = 0; x < place.Width; ++x) {
      const long canvasX = place.Left + x;
      const int index = frame.RasterBits[static_cast<std::size_t>(y) * place.Width + x];
      if (canvasX < 0 || canvasX >= width || index == control.TransparentColor ||
          index >= colors->ColorCount) {
        continue;
      }
      const GifColorType& color = colors->Colors[index];
      std::uint8_t* pixel = row + canvasX * 4;
      pixel[0] = color.Blue;
      pixel[1] = color.Green;
      pixel[2] = color.Red;
      pixel[3] = 255;
    }
  }
  return result;
}

// BMP has no decoder among the image libraries; FFmpeg's reads every variant.
Result decodeBmp(const std::uint8_t* data, std::size_t size, RowBytesRule rowBytes) {
  av_log_set_level(AV_LOG_QUIET);
  const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_BMP);
  const auto freeContext = [](AVCodecContext* c) { avcodec_free_context(&c); };
  const std::unique_ptr<AVCodecContext, decltype(freeContext)> context(avcodec_alloc_context3(codec),
                                                                       freeContext);
  const auto freePacket = [](AVPacket* p) { av_packet_free(&p); };
  const std::unique_ptr<AVPacket, decltype(freePacket)> packet(av_packet_alloc(), freePacket);
  const auto freeFrame = [](AVFrame* f) { av_frame_free(&f); };
  const std::unique_ptr<AVFrame, decltype(freeFrame)> frame(av_frame_alloc(), freeFrame);
  if (!codec || !context || !packet || !frame || avcodec_open2(context.get(), codec, nullptr) < 0 ||
      size > static_cast<std::size_t>(INT32_MAX) - AV_INPUT_BUFFER_PADDING_SIZE ||
      av_new_packet(packet.get(), static_cast<int>(size)) < 0) {
    return failure("BMP decoder unavailable");
  }
  std::memcpy(packet->data, data, size);
  if (avcodec_send_packet(context.get(), packet.get()) < 0 ||
      avcodec_receive_frame(context.get(), frame.get()) < 0) {
    return failure("damaged BMP data");
  }
  Result result = allocateFor(frame->width, frame->height, rowBytes, "BMP");
  if (!result.bitmap) {
    return result;
  }
  Bitmap& bitmap = *result.bitmap;
  const auto format = static_cast<AVPixelFormat>(frame->format);
  SwsContext* scaler = sws_getContext(frame->width, frame->height, format, frame->width, frame->height,
                                      AV_PIX_FMT_BGRA, SWS_POINT, nullptr, nullptr, nullptr);
  if (scaler == nullptr) {
    return failure("unsupported BMP pixel format");
  }
  std::uint8_t* planes[4] = {bitmap.bytes(), nullptr, nullptr, nullptr};
  const int strides[4] = {static_cast<int>(bitmap.rowBytes()), 0, 0, 0};
  sws_scale(scaler, frame->data, frame->linesize, 0, frame->height, planes, strides);
  sws_freeContext(scaler);
  // Many 32-bit files leave the fourth byte at zero without meaning transparency.
  bool anyAlpha = false;
  for (int y = 0; y < bitmap.height() && !anyAlpha; ++y) {
    for (int x = 0; x < bitmap.width() && !anyAlpha; ++x) {
      anyAlpha = bitmap.row(y)[x * 4 + 3] != 0;
    }
  }
  if (!anyAlpha) {
    for (int y = 0; y < bitmap.height(); ++y) {
      for (int x = 0; x < bitmap.width(); ++x) {
        bitmap.row(y)[x * 4 + 3] = 255;
      }
    }
  }
  bitmap.premultiply();
  return result;
}

bool startsWith(const std::uint8_t* data, std::size_t size, std::string_view magic, std::size_t offset = 0) {
  return size >= offset + magic.size() && std::memcmp(data + offset, magic.data(), magic.size()) == 0;
}

}  // namespace

Result ImageDecoder::decodeFile(const std::string& path, RowBytesRule rowBytes) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    return failure(path + " is not a file");
  }
  std::ifstream stream(path, std::ios::binary);
  if (!stream) {
    return failure("cannot open " + path);
  }
  const std::vector<std::uint8_t> data((std::istreambuf_iterator<char>(stream)),
                                       std::istreambuf_iterator<char>());
  if (stream.bad()) {
    return failure("cannot read " + path);
  }
  Result result = decode(data.data(), data.size(), rowBytes);
  if (!result.bitmap) {
    result.error = path + ": " + result.error;
  }
  return result;
}

Result ImageDecoder::decode(const std::uint8_t* data, std::size_t size, RowBytesRule rowBytes) {
  if (data == nullptr || size == 0) {
    return failure("empty image data");
  }
  if (startsWith(data, size, "\x89PNG\r\n\x1a\n")) {
    return decodePng(data, size, rowBytes);
  }
  if (startsWith(data, size, "\xff\xd8\xff")) {
    return decodeJpeg(data, size, rowBytes);
  }
  if (startsWith(data, size, std::string_view("II*\0", 4)) ||
      startsWith(data, size, std::string_view("MM\0*", 4))) {
    return decodeTiff(data, size, rowBytes);
  }
  if (startsWith(data, size, "GIF87a") || startsWith(data, size, "GIF89a")) {
    return decodeGif(data, size, rowBytes);
  }
  if (startsWith(data, size, "RIFF") && startsWith(data, size, "WEBP", 8)) {
    return decodeWebp(data, size, rowBytes);
  }
  if (startsWith(data, size, "BM")) {
    return decodeBmp(data, size, rowBytes);
  }
  return failure("not an image in a known format (PNG, JPEG, TIFF, GIF, WebP, BMP)");
}

}  // namespace qva
