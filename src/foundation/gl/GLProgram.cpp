#include "foundation/gl/GLProgram.h"

#include <epoxy/gl.h>

#include <utility>

namespace qva {

namespace {

// An object's info log as text, without the trailing newline most drivers end it with.
template <typename Length, typename Text>
std::string infoLog(GLuint object, Length length, Text text) {
  GLint size = 0;
  length(object, GL_INFO_LOG_LENGTH, &size);
  if (size <= 1) {
    return {};
  }
  std::string log(static_cast<std::size_t>(size), '\0');
  GLsizei written = 0;
  text(object, size, &written, log.data());
  log.resize(static_cast<std::size_t>(written));
  while (!log.empty() && (log.back() == '\n' || log.back() == '\0')) {
    log.pop_back();
  }
  return log;
}

void appendLine(std::string& log, const std::string& line) {
  if (!line.empty()) {
    log += (log.empty() ? "" : "\n") + line;
  }
}

// Compiles one shader; 0 when the driver refuses it.
GLuint compileShader(GLenum kind, const std::string& source, std::string& log) {
  const GLuint shader = glCreateShader(kind);
  const char* text = source.c_str();
  glShaderSource(shader, 1, &text, nullptr);
  glCompileShader(shader);
  appendLine(log, infoLog(shader, glGetShaderiv, glGetShaderInfoLog));
  GLint compiled = GL_FALSE;
  glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
  if (compiled != GL_TRUE) {
    glDeleteShader(shader);
    return 0;
  }
  return shader;
}

}  // namespace

std::optional<GLProgram> GLProgram::link(const std::string& vertexSource, const std::string& fragmentSource,
                                         std::string& log) {
  log.clear();
  std::optional<GLProgram> linked;
  const GLuint vertex = compileShader(GL_VERTEX_SHADER, vertexSource, log);
  const GLuint fragment = compileShader(GL_FRAGMENT_SHADER, fragmentSource, log);
  if (vertex != 0 && fragment != 0) {
    GLProgram program(glCreateProgram());
    glAttachShader(program.name_, vertex);
    glAttachShader(program.name_, fragment);
    glLinkProgram(program.name_);
    appendLine(log, infoLog(program.name_, glGetProgramiv, glGetProgramInfoLog));
    GLint status = GL_FALSE;
    glGetProgramiv(program.name_, GL_LINK_STATUS, &status);
    if (status == GL_TRUE) {
      linked = std::move(program);
    }
  }
  if (!linked && log.empty()) {
    log = "the driver refused the shaders without saying why";
  }
  // A linked program keeps what it needs; the shader objects go with it.
  glDeleteShader(vertex);
  glDeleteShader(fragment);
  return linked;
}

GLProgram::GLProgram(GLProgram&& other) noexcept : name_(std::exchange(other.name_, 0)) {}

GLProgram& GLProgram::operator=(GLProgram&& other) noexcept {
  if (this != &other) {
    if (name_ != 0) {
      glDeleteProgram(name_);
    }
    name_ = std::exchange(other.name_, 0);
  }
  return *this;
}

GLProgram::~GLProgram() {
  if (name_ != 0) {
    glDeleteProgram(name_);
  }
}

int GLProgram::uniform(const char* uniformName) const {
  return glGetUniformLocation(name_, uniformName);
}

std::uint32_t GLProgram::release() {
  return std::exchange(name_, 0);
}

}  // namespace qva
