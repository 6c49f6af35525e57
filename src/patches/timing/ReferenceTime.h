#pragma once

namespace qva {

// Reference time: seconds since 1 January 2001 00:00:00 UTC, the time base of the playout host and of
// formatted dates.
constexpr double kReferenceDateUnixTime = 978307200;

double referenceTimeForUnixTime(double unixTime);
double unixTimeForReferenceTime(double referenceTime);
// The wall clock as a reference time.
double currentReferenceTime();

}  // namespace qva
