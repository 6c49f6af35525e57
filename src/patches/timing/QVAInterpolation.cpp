#include "patches/timing/QVAInterpolation.h"

#include <cmath>

namespace qva {

namespace {
// A little larger than ln(1024); the exponential curves depend on this exact value.
constexpr double kExpFactor = 6.931618662570565;
constexpr double kPi = 3.141592653589793;
constexpr double kHalfPi = 1.5707963267948966;
}  // namespace

double qvaInterpolationCallbackLinear(double x) {
  return x;
}
double qvaInterpolationCallbackQuadraticIn(double x) {
  return x * x;
}
double qvaInterpolationCallbackQuadraticOut(double x) {
  return (x + x) - x * x;
}
double qvaInterpolationCallbackQuadraticInOut(double x) {
  return x <= 0.5 ? x * x + x * x : (x + x) * (2 - x) - 1;
}
double qvaInterpolationCallbackCubicIn(double x) {
  return x * x * x;
}
double qvaInterpolationCallbackCubicOut(double x) {
  const double y = x - 1;
  return y * y * y + 1;
}
double qvaInterpolationCallbackCubicInOut(double x) {
  if (x <= 0.5) {
    return x * x * x * 4;
  }
  const double y = x + x - 2;
  return y * y * y * 0.5 + 1;
}
double qvaInterpolationCallbackExpIn(double x) {
  return std::exp((x - 1) * kExpFactor);
}
double qvaInterpolationCallbackExpOut(double x) {
  return 1 - std::exp(x * -kExpFactor);
}
double qvaInterpolationCallbackExpInOut(double x) {
  const double y = x + x - 1;
  return x <= 0.5 ? std::exp(y * kExpFactor) * 0.5 : std::exp(y * -kExpFactor) * -0.5 + 1;
}
double qvaInterpolationCallbackSinIn(double x) {
  return 1 - std::sin(x * kHalfPi + kHalfPi);
}
double qvaInterpolationCallbackSinOut(double x) {
  return std::sin(x * kHalfPi);
}
double qvaInterpolationCallbackSinInOut(double x) {
  return 0.5 - std::sin(x * kPi + kHalfPi) * 0.5;
}

const std::array<QVAInterpolationCallback, 13> callbackTable = {
    qvaInterpolationCallbackLinear,       qvaInterpolationCallbackQuadraticIn,
    qvaInterpolationCallbackQuadraticOut, qvaInterpolationCallbackQuadraticInOut,
    qvaInterpolationCallbackCubicIn,      qvaInterpolationCallbackCubicOut,
    qvaInterpolationCallbackCubicInOut,   qvaInterpolationCallbackExpIn,
    qvaInterpolationCallbackExpOut,       qvaInterpolationCallbackExpInOut,
    qvaInterpolationCallbackSinIn,        qvaInterpolationCallbackSinOut,
    qvaInterpolationCallbackSinInOut,
};

int qvaInterpolate(unsigned index, double x, double* result) {
  // Written so that NaN is refused as well.
  if (index >= callbackTable.size() || !(x >= 0 && x <= 1) || result == nullptr) {
    return kQVAInterpolateParameterError;
  }
  *result = callbackTable[index](x);
  return 0;
}

const std::array<std::string, 17>& qvaInterpolationMenuItems() {
  static const std::array<std::string, 17> items = {"Linear",
                                                    "-",
                                                    "Quadratic In",
                                                    "Quadratic Out",
                                                    "Quadratic In-Out",
                                                    "-",
                                                    "Cubic In",
                                                    "Cubic Out",
                                                    "Cubic In-Out",
                                                    "-",
                                                    "Exponential In",
                                                    "Exponential Out",
                                                    "Exponential In-Out",
                                                    "-",
                                                    "Sinusoidal In",
                                                    "Sinusoidal Out",
                                                    "Sinusoidal In-Out"};
  return items;
}

}  // namespace qva
