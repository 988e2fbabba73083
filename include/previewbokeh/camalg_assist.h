/*
 * Function table of the camera-algorithm assist library
 * "libvelkcamalgassist.so", through which graphic buffers are created and
 * locked to reach their pixels. The library is opened at run time; on a Linux
 * host the dynamic loader's search (LD_LIBRARY_PATH) decides which copy.
 */
#ifndef PREVIEWBOKEH_CAMALG_ASSIST_H_
#define PREVIEWBOKEH_CAMALG_ASSIST_H_

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Allocates a graphic buffer for a width x height frame of `size` bytes. */
typedef void *(*GraphicBuffer_new_fn)(uint32_t width, uint32_t height, uint32_t size);
/* Frees a buffer made by GraphicBuffer_new. */
typedef void (*GraphicBuffer_delete_fn)(void *buffer);
/* Locks the buffer and returns the address of its first luma byte. */
typedef void *(*GraphicBufferPointer_lock_fn)(void *buffer);
/* Releases a lock taken by GraphicBufferPointer_lock. */
typedef int (*GraphicBufferPointer_unlock_fn)(void *buffer);
/* Returns the address of the buffer's pixels without locking. */
typedef void *(*GraphicBuffer_getPointer_fn)(void *buffer);

typedef struct camalg_assist_lib_api_t {
  void *handle;  /* dlopen handle of the assist library */
  GraphicBuffer_new_fn GraphicBuffer_new;
  GraphicBuffer_delete_fn GraphicBuffer_delete;
  GraphicBufferPointer_lock_fn GraphicBufferPointer_lock;
  GraphicBufferPointer_unlock_fn GraphicBufferPointer_unlock;
  GraphicBuffer_getPointer_fn GraphicBuffer_getPointer;
} camalg_assist_lib_api_t;

#ifdef __cplusplus
}  /* extern "C" */

/* Opens the assist library and fills `api` (C++ linkage). Returns 0, or 1
 * when the library or one of its five entries is missing. The caller closes
 * api->handle with dlclose when done. */
#if defined(__GNUC__)
__attribute__((visibility("default")))
#endif
int velk_load_caa_api(camalg_assist_lib_api_t *api);
#endif

#endif  /* PREVIEWBOKEH_CAMALG_ASSIST_H_ */
