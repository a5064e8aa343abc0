// Host version of the camera parameter set: "key=value" pairs joined by ";".
#ifndef POSTEFFECT_HOST_CAMERA_CAMERAPARAMETERS_H
#define POSTEFFECT_HOST_CAMERA_CAMERAPARAMETERS_H

#include <utils/KeyedVector.h>
#include <utils/String8.h>

namespace android {

class CameraParameters {
public:
    CameraParameters();
    explicit CameraParameters(const String8& params) { unflatten(params); }
    ~CameraParameters();

    // "k1=v1;k2=v2" with the keys in sorted order.
    String8 flatten() const;
    // Replaces the whole set. Parsing stops at the first piece without '='.
    void unflatten(const String8& params);

    // A key or value holding '=' or ';' is refused with an error line.
    void set(const char* key, const char* value);
    void set(const char* key, int value);
    void setFloat(const char* key, float value);
    // The value, or null when the key is absent.
    const char* get(const char* key) const;
    // The value read as an integer, or -1 when the key is absent.
    int getInt(const char* key) const;
    // The value read as a float, or -1 when the key is absent.
    float getFloat(const char* key) const;
    void remove(const char* key);

    void dump() const;

private:
    DefaultKeyedVector<String8, String8> mMap;
};

}  // namespace android

#endif
