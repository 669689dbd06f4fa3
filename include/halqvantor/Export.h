#pragma once

// HALQVANTOR_API marks the public API: the shared library exports what carries it and hides everything
// else (it is built with hidden visibility).
#if defined(__GNUC__) || defined(__clang__)
#define HALQVANTOR_API __attribute__((visibility("default")))
#define HALQVANTOR_HIDDEN __attribute__((visibility("hidden")))
#else
#define HALQVANTOR_API
#define HALQVANTOR_HIDDEN
#endif
