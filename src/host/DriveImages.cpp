#include "host/DriveImages.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "foundation/gl/GLContext.h"
#include "foundation/image/Bitmap.h"
#include "foundation/image/ImageDecoder.h"
#include "foundation/image/PngWriter.h"
#include "framework/PathAdditions.h"

namespace qva {

namespace {

// Solid test images are at most this many pixels on a side.
constexpr int kMaxSolidSide = 16384;

std::uint8_t toByte(double component) {
  const double clamped = std::clamp(std::isnan(component) ? 0.0 : component, 0.0, 1.0);
  return static_cast<std::uint8_t>(clamped * 255.0 + 0.5);
}

}  // namespace

DriveImages::DriveImages(std::string scriptFolder, std::optional<std::string> imagesFolder)
    : scriptFolder_(std::move(scriptFolder)), imagesFolder_(std::move(imagesFolder)) {}

ImageRef DriveImages::makeSolidImage(const PropertyList& color, long long width, long long height) {
  if (!color.is_array() || color.size() != 4 ||
      !std::all_of(color.begin(), color.end(), [](const PropertyList& c) { return c.is_number(); })) {
    throw std::invalid_argument("\"solid\" must be [r, g, b, a] with components from 0 to 1");
  }
  if (width < 1 || height < 1 || width > kMaxSolidSide || height > kMaxSolidSide) {
    throw std::invalid_argument("a solid image needs a width and height from 1 to 16384");
  }
  const double alpha = std::clamp(color[3].get<double>(), 0.0, 1.0);
  const std::uint8_t pixel[4] = {toByte(color[2].get<double>() * alpha),
                                 toByte(color[1].get<double>() * alpha),
                                 toByte(color[0].get<double>() * alpha), toByte(alpha)};
  std::optional<Bitmap> bitmap = Bitmap::allocate(static_cast<int>(width), static_cast<int>(height),
                                                  static_cast<std::size_t>(width) * 4);
  if (!bitmap) {
    throw std::invalid_argument("out of memory for a solid image");
  }
  for (int y = 0; y < bitmap->height(); ++y) {
    std::uint8_t* row = bitmap->row(y);
    for (int x = 0; x < bitmap->width(); ++x) {
      std::copy(pixel, pixel + 4, row + static_cast<std::size_t>(x) * 4);
    }
  }
  return std::move(*bitmap).toImage();
}

ImageRef DriveImages::imageForValue(const PropertyList& imageValue) {
  const std::string key = imageValue.dump();
  if (auto found = inputImages_.find(key); found != inputImages_.end()) {
    return found->second;
  }
  ImageRef image;
  if (imageValue.contains("solid")) {
    image =
        makeSolidImage(imageValue["solid"], propertyListInteger(imageValue.value("width", PropertyList(1))),
                       propertyListInteger(imageValue.value("height", PropertyList(1))));
  } else if (imageValue.contains("imageFile") && imageValue["imageFile"].is_string()) {
    auto decoded = ImageDecoder::decodeFile(
        pathResolvedAgainst(imageValue["imageFile"].get<std::string>(), scriptFolder_));
    if (!decoded.bitmap) {
      throw std::invalid_argument(decoded.error);
    }
    image = std::move(*decoded.bitmap).toImage();
  } else {
    throw std::invalid_argument(
        R"(an image is {"imageFile": "path.png"} or {"solid": [r, g, b, a], "width": W, "height": H})");
  }
  inputImages_[key] = image;
  return image;
}

std::string DriveImages::visibleBytesDigest(const PixelBufferView& pixels) {
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr);
  const std::size_t visibleRow = static_cast<std::size_t>(pixels.width) * 4;
  for (int row = 0; row < pixels.height; ++row) {
    EVP_DigestUpdate(context.get(), pixels.bytes + static_cast<std::size_t>(row) * pixels.rowBytes,
                     visibleRow);
  }
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_DigestFinal_ex(context.get(), digest, &length);
  static constexpr char kHex[] = "0123456789abcdef";
  std::string hex;
  for (unsigned int i = 0; i < length; ++i) {
    hex.push_back(kHex[digest[i] >> 4]);
    hex.push_back(kHex[digest[i] & 15]);
  }
  return hex;
}

PropertyList DriveImages::describe(const ImageRef& image) {
  if (!image) {
    return nullptr;
  }
  PropertyList description = PropertyList::object();
  description["width"] = image->width();
  description["height"] = image->height();
  std::optional<PixelBufferView> pixels = image->pixelBuffer();
  if (!pixels && gl_ != nullptr) {
    pixels = gl_->pixelsForImage(*image);
  }
  description["rowBytes"] = pixels ? PropertyList(pixels->rowBytes) : PropertyList();
  description["format"] = "BGRA8";
  description["sha256"] = pixels ? PropertyList(visibleBytesDigest(*pixels)) : PropertyList();
  if (imagesFolder_ && pixels) {
    char name[32];
    std::snprintf(name, sizeof name, "image_%05d.png", ++writtenImages_);
    std::error_code ignored;
    std::filesystem::create_directories(*imagesFolder_, ignored);
    const std::string path = (std::filesystem::path(*imagesFolder_) / name).string();
    if (const std::string error = PngWriter::write(*pixels, path); !error.empty()) {
      throw std::runtime_error(error);
    }
    description["file"] = path;
  }
  return PropertyList{{"image", description}};
}

}  // namespace qva
