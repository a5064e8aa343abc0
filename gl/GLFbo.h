// One GL framebuffer object with one colour attachment, a GLTexture that the
// caller owns. Log tag "GLFbo".
#ifndef POSTEFFECT_GL_GLFBO_H
#define POSTEFFECT_GL_GLFBO_H

#include <GLES2/gl2.h>

class GLTexture;

class GLFbo {
public:
    GLFbo();
    // Detaches the texture and deletes the framebuffer; framebuffer 0 is
    // bound afterwards. The attached texture is not deleted.
    virtual ~GLFbo();

    // Generates the framebuffer name. The result of its error check.
    int Init();
    int Bind();
    // Binds framebuffer 0.
    int Unbind();
    // Attaches `texture` of `target` as colour attachment 0. 1 when the
    // framebuffer is complete: the caller's framebuffer binding is then kept.
    // 0 when it is not: this framebuffer stays bound.
    int SetColorAttachment(unsigned target, unsigned texture);
    // Remembers and attaches `tex`; 1 even when the framebuffer is incomplete
    // (the error is logged), 0 only for a null texture.
    int SetColorAttachment(GLTexture* tex);
    // Binds this framebuffer and detaches its colour texture.
    int ResetColorAttachment();

    // Writes the attached texture to "/data/<name>" as a BMP file whose
    // header comes from the BMP file `templatePath` (GLBmp.cpp). The pixels
    // are read with glReadPixels from the bound framebuffer: bind this one
    // first.
    int SaveBMP(const char* templatePath, const char* name);

    GLuint GetFboName() const { return m_nFbo; }
    GLTexture* GetTexture() const { return m_pTexture; }

private:
    GLFbo(const GLFbo&) = delete;
    GLFbo& operator=(const GLFbo&) = delete;

    GLuint m_nFbo;
    GLTexture* m_pTexture;  // not owned
};

#endif
