// The export macro and the version. Every other exported header includes this one.
#pragma once

#if defined(__GNUC__)
#define QV_API __attribute__((visibility("default")))
#else
#define QV_API
#endif

#define QV_VERSION_MAJOR 0
#define QV_VERSION_MINOR 1
#define QV_VERSION_PATCH 0
#define QV_VERSION_STRING "0.1.0"
