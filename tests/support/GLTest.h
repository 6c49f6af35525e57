#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "foundation/gl/GLContext.h"

namespace qva {

// A fixture with the host's GL context current; its tests are skipped where none can be made.
class GLTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto creation = GLContext::create();
    if (!creation.context) {
      GTEST_SKIP() << creation.error;
    }
    gl_ = std::move(creation.context);
  }

  std::unique_ptr<GLContext> gl_;
};

}  // namespace qva
