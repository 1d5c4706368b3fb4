// GLib never frees the first block of its quark table once a process has made more than
// 2048 quarks, as every process that starts GStreamer does; GLib's library constructor
// allocated that block. With full allocation stacks (GLib keeps no frame pointers) the
// leak checker of sanitizer builds sees where it came from and passes over it, and over
// nothing else that was allocated while a library was loaded.
#if defined(__SANITIZE_ADDRESS__)
extern "C" const char *__asan_default_options(void)
{
        return "fast_unwind_on_malloc=0";
}

extern "C" const char *__lsan_default_suppressions(void)
{
        return "leak:_dl_init\n";
}
#endif
