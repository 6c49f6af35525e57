#include <epoxy/gl.h>
#include <gtest/gtest.h>

#include <string>

#include "foundation/gl/GLProgram.h"
#include "support/GLTest.h"

namespace qva {
namespace {

using GLProgramTest = GLTest;

constexpr const char* kVertex = "void main() { gl_Position = ftransform(); }";

TEST_F(GLProgramTest, LinksAndNamesItsUniformsAndDeletesItself) {
  std::string log = "stale";
  std::optional<GLProgram> program =
      GLProgram::link(kVertex, "uniform vec4 tint; void main() { gl_FragColor = tint; }", log);
  ASSERT_TRUE(program) << log;
  EXPECT_GE(program->uniform("tint"), 0);
  EXPECT_EQ(program->uniform("absent"), -1);
  const GLuint name = program->name();
  EXPECT_EQ(glIsProgram(name), GL_TRUE);
  program.reset();
  EXPECT_EQ(glIsProgram(name), GL_FALSE);

  // A released program is the caller's to delete.
  std::optional<GLProgram> kept = GLProgram::link(kVertex, "void main() { gl_FragColor = vec4(1.0); }", log);
  ASSERT_TRUE(kept) << log;
  const GLuint released = kept->release();
  kept.reset();
  EXPECT_EQ(glIsProgram(released), GL_TRUE);
  glDeleteProgram(released);
}

// What the compiler says comes back as text for the host's log, and nothing is left behind.
TEST_F(GLProgramTest, RefusedShadersGiveTheCompilersMessages) {
  std::string log;
  EXPECT_FALSE(GLProgram::link(kVertex, "void main() { gl_FragColor = undeclared; }", log));
  EXPECT_NE(log.find("undeclared"), std::string::npos) << log;
  EXPECT_EQ(log.find('\0'), std::string::npos);
  EXPECT_FALSE(GLProgram::link("not glsl at all", "void main() { gl_FragColor = vec4(1.0); }", log));
  EXPECT_FALSE(log.empty());
  EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
}

}  // namespace
}  // namespace qva
