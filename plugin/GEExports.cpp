// The two functions the camera service finds in the library by name.
#include <new>

#include "IPostEffect.h"
#include "gl/GECommon.h"
#include "plugin/GPUPostEffect.h"

// Constructs the plug-in; the worker starts with start(). Null when memory
// cannot be had.
extern "C" GE_EXPORT IPostEffect* createPostEffect() {
    return new (std::nothrow) korvo::GPUPostEffect();
}

// Destroys a plug-in made by createPostEffect (the caller has stopped it).
extern "C" GE_EXPORT void destroyPostEffect(IPostEffect* effect) {
    if (effect != nullptr) {
        delete effect;
    }
}
