#pragma once

#include <memory>

#include "foundation/gpi/GpiDriver.h"

namespace qva {

// The driver GPI patches take when they are created: the GPIO character device backend unless a host
// has put another one (the simulated box) in its place.
std::shared_ptr<GpiDriver> currentGpiDriver();

// Puts a driver in place for its lifetime and then restores the one before; a host holds one while it
// creates the patches of a script or composition that asked for that driver.
class ScopedGpiDriver {
 public:
  explicit ScopedGpiDriver(std::shared_ptr<GpiDriver> driver);
  ~ScopedGpiDriver();
  ScopedGpiDriver(const ScopedGpiDriver&) = delete;
  ScopedGpiDriver& operator=(const ScopedGpiDriver&) = delete;

 private:
  std::shared_ptr<GpiDriver> previous_;
};

}  // namespace qva
