#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* File descriptors and numbers that go from process to process together. */
typedef struct native_handle {
    int version; /* sizeof(native_handle_t) */
    int numFds;  /* file descriptors, from data[0] on */
    int numInts; /* numbers, behind the descriptors */
    int data[0];
} native_handle_t;

/** Handle with room for what it is to hold, to be freed with native_handle_delete; null and
 *  errno EINVAL beyond 1024 of either, null without memory. */
native_handle_t* native_handle_create(int numFds, int numInts);

/** Copy with descriptors duplicated; null with errno when one cannot be. */
native_handle_t* native_handle_clone(const native_handle_t* handle);

/** Closes the descriptors, and leaves the handle. Returns 0, or -EINVAL for another version. */
int native_handle_close(const native_handle_t* handle);

/** Frees the handle, and leaves the descriptors open. Returns 0, or -EINVAL for another version. */
int native_handle_delete(native_handle_t* handle);

#ifdef __cplusplus
}
#endif
