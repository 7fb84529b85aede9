// Which lock guards what, in a form that clang checks (-Wthread-safety) and other compilers pass over.
#pragma once

#if defined(__clang__)
#define HARROW_ANNOTATION(x) __attribute__((x))
#else
#define HARROW_ANNOTATION(x)
#endif

#define S_CAPABILITY(name) HARROW_ANNOTATION(capability(name))
#define S_SCOPED_CAPABILITY HARROW_ANNOTATION(scoped_lockable)
#define S_GUARDED_BY(lock) HARROW_ANNOTATION(guarded_by(lock))
#define S_REQUIRES(...) HARROW_ANNOTATION(requires_capability(__VA_ARGS__))
#define S_REQUIRES_SHARED(...) HARROW_ANNOTATION(requires_shared_capability(__VA_ARGS__))
#define S_ACQUIRE(...) HARROW_ANNOTATION(acquire_capability(__VA_ARGS__))
#define S_ACQUIRE_SHARED(...) HARROW_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define S_RELEASE(...) HARROW_ANNOTATION(release_capability(__VA_ARGS__))
#define S_RELEASE_SHARED(...) HARROW_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define S_RELEASE_GENERIC(...) HARROW_ANNOTATION(release_generic_capability(__VA_ARGS__))
