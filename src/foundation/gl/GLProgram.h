#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace qva {

// A linked GLSL program of the current context, deleted with the object.
class GLProgram {
 public:
  // Compiles the two texts and links them; log gets what the compiler and linker said (warnings too),
  // which says why when there is no program.
  static std::optional<GLProgram> link(const std::string& vertexSource, const std::string& fragmentSource,
                                       std::string& log);
  GLProgram(GLProgram&& other) noexcept;
  GLProgram& operator=(GLProgram&& other) noexcept;
  GLProgram(const GLProgram&) = delete;
  GLProgram& operator=(const GLProgram&) = delete;
  ~GLProgram();

  std::uint32_t name() const { return name_; }
  // The location of a uniform, -1 when the program has no uniform of that name in use.
  int uniform(const char* uniformName) const;
  // Gives up the program: the caller deletes it from now on.
  std::uint32_t release();

 private:
  explicit GLProgram(std::uint32_t name) : name_(name) {}

  std::uint32_t name_ = 0;
};

}  // namespace qva
