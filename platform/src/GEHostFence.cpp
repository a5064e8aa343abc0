// GL_NV_fence on the host, for GLES implementations that lack it (Mesa).
//
// Semantics as the extension has them: fence names are per context; a name
// from glGenFencesNV is not a fence until glSetFenceNV has been called on it
// (glIsFenceNV is false before); the only condition is GL_ALL_COMPLETED_NV;
// glTestFenceNV and glGetFenceivNV(GL_FENCE_STATUS_NV) tell whether the
// commands before the fence have completed without waiting;
// glFinishFenceNV waits for them. Testing or finishing a name that is not a
// set fence is GL_INVALID_OPERATION (glTestFenceNV then answers GL_TRUE, so
// that a polling loop ends).
//
// On an OpenGL ES 3 context a fence is a GL sync object; on an ES 2 context,
// which has none, setting a fence finishes the commands before it.
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <GLES3/gl3.h>

#include <map>

#include "GEHostState.h"

namespace gehost {

namespace {

struct Fence {
    bool bSet = false;  // false: generated, not yet a fence
    bool bDone = false;
    GLenum condition = 0;
    GLsync sync = nullptr;
};

struct FenceTable {
    EGLDisplay dpy = EGL_NO_DISPLAY;
    GLuint nNext = 1;
    std::map<GLuint, Fence> fences;
};

std::mutex s_fenceLock;
std::map<EGLContext, FenceTable> s_tables;

// The current context's table, null without a current context.
FenceTable* CurrentTable() {
    EGLContext ctx = eglGetCurrentContext();
    if (ctx == EGL_NO_CONTEXT) {
        return nullptr;
    }
    FenceTable& table = s_tables[ctx];
    table.dpy = eglGetCurrentDisplay();
    return &table;
}

// The set fence `name` in the current context, null (with
// GL_INVALID_OPERATION raised) when there is none.
Fence* SetFenceNamed(GLuint name) {
    FenceTable* table = CurrentTable();
    if (table == nullptr) {
        return nullptr;
    }
    auto it = table->fences.find(name);
    if (it == table->fences.end() || !it->second.bSet) {
        RaiseGLError(GL_INVALID_OPERATION);
        return nullptr;
    }
    return &it->second;
}

bool Poll(Fence* fence) {
    if (!fence->bDone && fence->sync != nullptr) {
        GLenum r = glClientWaitSync(fence->sync, GL_SYNC_FLUSH_COMMANDS_BIT, 0);
        if (r == GL_ALREADY_SIGNALED || r == GL_CONDITION_SATISFIED || r == GL_WAIT_FAILED) {
            fence->bDone = true;
        }
    }
    if (fence->bDone && fence->sync != nullptr) {
        glDeleteSync(fence->sync);
        fence->sync = nullptr;
    }
    return fence->bDone;
}

}  // namespace

void ForgetFences(EGLContext ctx) {
    // The context's sync objects go with it.
    std::lock_guard<std::mutex> lock(s_fenceLock);
    s_tables.erase(ctx);
}

void ForgetFenceDisplay(EGLDisplay dpy) {
    std::lock_guard<std::mutex> lock(s_fenceLock);
    for (auto it = s_tables.begin(); it != s_tables.end();) {
        it = it->second.dpy == dpy ? s_tables.erase(it) : std::next(it);
    }
}

}  // namespace gehost

using namespace gehost;

extern "C" {

void __wrap_glGenFencesNV(GLsizei n, GLuint* fences) {
    if (n < 0) {
        RaiseGLError(GL_INVALID_VALUE);
        return;
    }
    std::lock_guard<std::mutex> lock(s_fenceLock);
    FenceTable* table = CurrentTable();
    if (table == nullptr || fences == nullptr) {
        return;
    }
    for (GLsizei i = 0; i < n; ++i) {
        while (table->nNext == 0 || table->fences.count(table->nNext)) {
            ++table->nNext;
        }
        table->fences[table->nNext] = Fence();
        fences[i] = table->nNext++;
    }
}

void __wrap_glDeleteFencesNV(GLsizei n, const GLuint* fences) {
    if (n < 0) {
        RaiseGLError(GL_INVALID_VALUE);
        return;
    }
    std::lock_guard<std::mutex> lock(s_fenceLock);
    FenceTable* table = CurrentTable();
    if (table == nullptr || fences == nullptr) {
        return;
    }
    for (GLsizei i = 0; i < n; ++i) {
        auto it = table->fences.find(fences[i]);
        if (it == table->fences.end()) {
            continue;  // unused names are ignored
        }
        if (it->second.sync != nullptr) {
            glDeleteSync(it->second.sync);
        }
        table->fences.erase(it);
    }
}

GLboolean __wrap_glIsFenceNV(GLuint fence) {
    std::lock_guard<std::mutex> lock(s_fenceLock);
    FenceTable* table = CurrentTable();
    if (table == nullptr) {
        return GL_FALSE;
    }
    auto it = table->fences.find(fence);
    return it != table->fences.end() && it->second.bSet ? GL_TRUE : GL_FALSE;
}

void __wrap_glSetFenceNV(GLuint fence, GLenum condition) {
    if (condition != GL_ALL_COMPLETED_NV) {
        RaiseGLError(GL_INVALID_ENUM);
        return;
    }
    std::lock_guard<std::mutex> lock(s_fenceLock);
    FenceTable* table = CurrentTable();
    if (table == nullptr) {
        return;
    }
    Fence& f = table->fences[fence];
    if (f.sync != nullptr) {
        glDeleteSync(f.sync);
        f.sync = nullptr;
    }
    f.bSet = true;
    f.condition = condition;
    f.bDone = false;
    if (CurrentGLESMajor() >= 3) {
        f.sync = glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
    }
    if (f.sync == nullptr) {
        glFinish();
        f.bDone = true;
    }
}

GLboolean __wrap_glTestFenceNV(GLuint fence) {
    std::lock_guard<std::mutex> lock(s_fenceLock);
    Fence* f = SetFenceNamed(fence);
    if (f == nullptr) {
        return GL_TRUE;
    }
    return Poll(f) ? GL_TRUE : GL_FALSE;
}

void __wrap_glFinishFenceNV(GLuint fence) {
    std::lock_guard<std::mutex> lock(s_fenceLock);
    Fence* f = SetFenceNamed(fence);
    if (f == nullptr) {
        return;
    }
    while (!f->bDone && f->sync != nullptr) {
        GLenum r = glClientWaitSync(f->sync, GL_SYNC_FLUSH_COMMANDS_BIT, 1000000000ull);
        if (r != GL_TIMEOUT_EXPIRED) {
            if (r == GL_WAIT_FAILED) {
                glFinish();
            }
            f->bDone = true;
        }
    }
    Poll(f);
}

void __wrap_glGetFenceivNV(GLuint fence, GLenum pname, GLint* params) {
    std::lock_guard<std::mutex> lock(s_fenceLock);
    Fence* f = SetFenceNamed(fence);
    if (f == nullptr) {
        return;
    }
    if (pname == GL_FENCE_STATUS_NV) {
        *params = Poll(f) ? GL_TRUE : GL_FALSE;
    } else if (pname == GL_FENCE_CONDITION_NV) {
        *params = (GLint)f->condition;
    } else {
        RaiseGLError(GL_INVALID_ENUM);
    }
}

}  // extern "C"
