// Included first by every header that is not part of the installed interface. The
// library's own targets (its objects, tests, benchmarks and fuzz targets) define
// ZNDVR_PRIVATE_BUILD; anything else that reaches a private header stops here rather
// than depend on code that changes without notice.
#pragma once

#ifndef ZNDVR_PRIVATE_BUILD
#error "this zndvr header is private to the library's own build; include the installed public headers"
#endif
