#pragma once

#include <array>
#include <string>

namespace qva {

// The thirteen easing functions, indexed 0 to 12 by the easing index.
double qvaInterpolationCallbackLinear(double x);
double qvaInterpolationCallbackQuadraticIn(double x);
double qvaInterpolationCallbackQuadraticOut(double x);
double qvaInterpolationCallbackQuadraticInOut(double x);
double qvaInterpolationCallbackCubicIn(double x);
double qvaInterpolationCallbackCubicOut(double x);
double qvaInterpolationCallbackCubicInOut(double x);
double qvaInterpolationCallbackExpIn(double x);
double qvaInterpolationCallbackExpOut(double x);
double qvaInterpolationCallbackExpInOut(double x);
double qvaInterpolationCallbackSinIn(double x);
double qvaInterpolationCallbackSinOut(double x);
double qvaInterpolationCallbackSinInOut(double x);

using QVAInterpolationCallback = double (*)(double);
extern const std::array<QVAInterpolationCallback, 13> callbackTable;

constexpr int kQVAInterpolateParameterError = -50;

// Writes the eased fraction x of the easing function index to result and answers 0; answers -50 and
// writes nothing when the index is above 12, x is outside [0, 1] (or NaN) or result is missing.
int qvaInterpolate(unsigned index, double x, double* result);

// The easing menu: 17 items of which the four "-" are separators that take no index.
const std::array<std::string, 17>& qvaInterpolationMenuItems();

}  // namespace qva
