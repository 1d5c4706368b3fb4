// GMutex lock and unlock that ThreadSanitizer can follow. GLib's GMutex is a bare futex
// that TSan does not see, so a build with -fsanitize=thread tells TSan about each lock
// operation; every other build compiles to plain g_mutex_lock/g_mutex_unlock, and a debug
// build stops at an unlock of a mutex nobody holds (a lock left out). Meant for static
// GMutexes (zero-initialised, never cleared).
#pragma once

#include <glib.h>

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>

// Optional: announces the mutex before its first use. The lock helpers pass the same
// flag, so a mutex first seen there is known as static too.
inline void gmutex_tsan_create(GMutex *mutex)
{
        __tsan_mutex_create(mutex, __tsan_mutex_linker_init);
}

inline void gmutex_tsan_lock(GMutex *mutex)
{
        __tsan_mutex_pre_lock(mutex, __tsan_mutex_linker_init);
        g_mutex_lock(mutex);
        __tsan_mutex_post_lock(mutex, __tsan_mutex_linker_init, 0);
}

inline void gmutex_tsan_unlock(GMutex *mutex)
{
        __tsan_mutex_pre_unlock(mutex, 0);
        g_mutex_unlock(mutex);
        __tsan_mutex_post_unlock(mutex, 0);
}
#else
inline void gmutex_tsan_create(GMutex *)
{
}

inline void gmutex_tsan_lock(GMutex *mutex)
{
        g_mutex_lock(mutex);
}

inline void gmutex_tsan_unlock(GMutex *mutex)
{
#ifndef NDEBUG
        // A GMutex does not nest, so a trylock fails exactly while someone holds it.
        g_assert(!g_mutex_trylock(mutex));
#endif
        g_mutex_unlock(mutex);
}
#endif
