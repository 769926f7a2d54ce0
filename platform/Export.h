// Visibility of the library's public surface. libzndvr.so is built with hidden
// visibility; exported classes and functions carry ZNDVR_API.
#pragma once

#define ZNDVR_API __attribute__((visibility("default")))
