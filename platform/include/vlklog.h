// The per-tag log masks.
//
// Each log tag has a one-byte mask; bit 1 << (priority - 2) lets lines of that
// priority through (0x02 debug, 0x04 info, 0x10 error). A mask holding 0x80
// has not been read yet: __vlklog_init_mask reads the tag's mask, stores it in
// *mask and returns it. On the host the masks come from the environment
// variable POSTEFFECT_LOG (see the README), errors only by default.
#ifndef POSTEFFECT_HOST_VLKLOG_H
#define POSTEFFECT_HOST_VLKLOG_H

#ifdef __cplusplus
extern "C" {
#endif

int __vlklog_init_mask(const char* tag, int level, unsigned char* mask);

#ifdef __cplusplus
}
#endif

#endif
