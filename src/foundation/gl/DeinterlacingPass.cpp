#include "foundation/gl/DeinterlacingPass.h"

#include <epoxy/gl.h>

#include "foundation/gl/GLContext.h"
#include "framework/StringFormat.h"

namespace qva {

namespace {

// The driver's GLSL wants the rectangle-texture extension named before the shaders' own text.
const char* const shaderPreamble = "#version 110\n#extension GL_ARB_texture_rectangle : enable\n";

// One quad over the target, texture coordinates 0 to 1 across it, the texture's top row at the top.
void drawQuad(double width, double height) {
  glActiveTexture(GL_TEXTURE0);
  glBegin(GL_QUADS);
  glTexCoord2d(1, 0);
  glVertex2d(width, height);
  glTexCoord2d(0, 0);
  glVertex2d(0, height);
  glTexCoord2d(0, 1);
  glVertex2d(0, 0);
  glTexCoord2d(1, 1);
  glVertex2d(width, 0);
  glEnd();
}

}  // namespace

const char* DeinterlacingPass::vertexShaderSource() {
  return "void main(){gl_TexCoord[0] = gl_TextureMatrix[0] *  gl_MultiTexCoord0;gl_TexCoord[0].y =  "
         "gl_TexCoord[0].y/2.0;gl_TexCoord[0].z =  gl_TexCoord[0].y+0.5;\tgl_Position = "
         "gl_ModelViewProjectionMatrix * gl_Vertex;}";
}

const char* DeinterlacingPass::fragmentShaderSource() {
  return "uniform sampler2DRect image;uniform float field_offset;void main(){\tfloat x = "
         "gl_TexCoord[0].x;\tfloat "
         "y1=(floor(gl_TexCoord[0].y)+field_offset)*2.0;\tfloat "
         "y2=(floor(gl_TexCoord[0].z)+field_offset)*2.0;\tvec4 "
         "color1 = texture2DRect(image, vec2(x, y1));\tvec4 color2 = texture2DRect(image, vec2(x, "
         "y2));\tgl_FragColor "
         "= mix(color1, color2, 0.5);}";
}

std::optional<std::string> DeinterlacingPass::buildProgram() {
  if (program_ || refused_) {
    return std::nullopt;
  }
  std::string log;
  program_ = GLProgram::link(std::string(shaderPreamble) + vertexShaderSource(),
                             std::string(shaderPreamble) + fragmentShaderSource(), log);
  refused_ = !program_;
  return refused_ ? std::optional("the driver refused the de-interlacing shaders: " + log) : std::nullopt;
}

std::optional<std::string> DeinterlacingPass::copy(Framebuffer& target, const TextureView& image,
                                                   const TextureView* mask, std::optional<bool> evenField) {
  std::optional<std::string> problem = evenField ? buildProgram() : std::nullopt;
  GLContext::takeError();
  glPushAttrib(GL_ALL_ATTRIB_BITS);
  target.bind();
  GLint matrixMode = GL_MODELVIEW;
  glGetIntegerv(GL_MATRIX_MODE, &matrixMode);
  glMatrixMode(GL_PROJECTION);
  glPushMatrix();
  glLoadIdentity();
  glOrtho(0, target.width(), 0, target.height(), -1, 1);
  glMatrixMode(GL_MODELVIEW);
  glPushMatrix();
  glLoadIdentity();

  GLContext::bindTexture(image, 0, true);
  glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
  glDisable(GL_DEPTH_TEST);
  glDisable(GL_SCISSOR_TEST);
  glDisable(GL_ALPHA_TEST);
  glDisable(GL_BLEND);
  glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
  const GLenum imageTarget = GLContext::glTarget(image.target);
  glTexParameteri(imageTarget, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
  glTexParameteri(imageTarget, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
  GLint previousProgram = 0;
  glGetIntegerv(GL_CURRENT_PROGRAM, &previousProgram);
  if (evenField && program_) {
    glUseProgram(program_->name());
    glUniform1f(program_->uniform("field_offset"), *evenField ? 0.75f : 0.25f);
    glUniform1i(program_->uniform("image"), 0);
  }
  drawQuad(target.width(), target.height());
  glUseProgram(static_cast<GLuint>(previousProgram));
  GLContext::unbindTexture(image, 0);

  if (mask != nullptr) {
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_TRUE);
    GLContext::bindTexture(*mask, 0, true);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
    drawQuad(target.width(), target.height());
    GLContext::unbindTexture(*mask, 0);
  }

  glMatrixMode(GL_MODELVIEW);
  glPopMatrix();
  glMatrixMode(GL_PROJECTION);
  glPopMatrix();
  glMatrixMode(static_cast<GLenum>(matrixMode));
  target.unbind();
  glPopAttrib();
  if (const unsigned error = GLContext::takeError(); error != 0) {
    problem = (problem ? *problem + "; " : std::string()) +
              formatString("OpenGL error %04X while copying the image", error);
  }
  return problem;
}

}  // namespace qva
