#include "gl/GLFbo.h"

#include "gl/GECommon.h"
#include "gl/GELog.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_log("GLFbo");

}  // namespace

GLFbo::GLFbo() : m_nFbo(0), m_pTexture(nullptr) {}

GLFbo::~GLFbo() {
    GE_LOGI(s_log, "[%s] enter", "~GLFbo");
    if (glIsFramebuffer(m_nFbo)) {
        Bind();
        ResetColorAttachment();
        Unbind();
        glDeleteFramebuffers(1, &m_nFbo);
    }
    GE_LOGI(s_log, "[%s] leave", "~GLFbo");
}

int GLFbo::Init() {
    glGenFramebuffers(1, &m_nFbo);
    GE_LOGI(s_log, "[%s] fbo %d created", "Init", (int)m_nFbo);
    return (int)CheckGLError("GLFbo::Init", "glGenFramebuffers");
}

int GLFbo::Bind() {
    glBindFramebuffer(GL_FRAMEBUFFER, m_nFbo);
    return (int)CheckGLError("GLFbo::Bind", "glBindFramebuffer");
}

int GLFbo::Unbind() {
    GE_LOGI(s_log, "[%s] enter", "Unbind");
    GE_LOGI(s_log, "[%s] Unbind fbo %d", "Unbind", (int)m_nFbo);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    int result = (int)CheckGLError("GLFbo::Unbind", "glBindFramebuffer");
    GE_LOGI(s_log, "[%s] leave", "Unbind");
    return result;
}

int GLFbo::SetColorAttachment(unsigned target, unsigned texture) {
    GLint previous = 0;
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &previous);
    bool other = (GLuint)previous != m_nFbo;
    if (other) {
        Bind();
    }
    glBindTexture(target, texture);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, target, texture, 0);
    GLenum status = glCheckFramebufferStatus(GL_FRAMEBUFFER);
    if (status == GL_FRAMEBUFFER_COMPLETE) {
        if (other) {
            glBindFramebuffer(GL_FRAMEBUFFER, (GLuint)previous);
        }
        return 1;
    }
    // This framebuffer stays bound, so that the caller can look at it.
    GE_LOGE(s_log, "[GLFbo::SetColorAttachment] ERROR, FBO not complete, status %u\n",
            (unsigned)status);
    return 0;
}

int GLFbo::SetColorAttachment(GLTexture* tex) {
    if (tex == nullptr) {
        GE_LOGE(s_log, "[GLFbo::SetColorAttachment] invalid pTexture");
        return 0;
    }
    m_pTexture = tex;
    // An incomplete framebuffer has been logged; callers go by the log.
    SetColorAttachment(tex->GetTarget(), tex->GetTexName());
    return 1;
}

int GLFbo::ResetColorAttachment() {
    GE_LOGI(s_log, "[%s] enter", "ResetColorAttachment");
    Bind();
    GE_LOGI(s_log, "[%s] attaching tex 0 to fbo %d", "ResetColorAttachment", (int)m_nFbo);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, 0, 0);
    m_pTexture = nullptr;
    GE_LOGI(s_log, "[%s] leave", "ResetColorAttachment");
    return (int)CheckGLError("GLFbo::ResetColorAttachment", "glFramebufferTexture2D");
}
