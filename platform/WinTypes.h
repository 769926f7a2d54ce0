// The fixed-width scalar types and handle types in which the library's interfaces
// are written. Widths are those of the 32-bit platform the formats were defined
// on: DWORD and LONG are 32 bits, WORD 16, BYTE 8.
#pragma once

#include <cstdint>

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using UINT = unsigned int;
using BOOL = int;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;
using LPVOID = void*;
using LPBYTE = BYTE*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPDWORD = DWORD*;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

// Opaque handles: never dereferenced by callers, compared and passed back only.
struct HWND__;
using HWND = HWND__*;
struct HANDLE__;
using HANDLE = HANDLE__*;

// Resource handles of window classes. Our windows are never painted, so these are
// accepted at class registration and kept, never used.
struct HICON__;
using HICON = HICON__*;
struct HCURSOR__;
using HCURSOR = HCURSOR__*;
struct HBRUSH__;
using HBRUSH = HBRUSH__*;

struct tagRECT {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
};
using RECT = tagRECT;
using LPRECT = RECT*;
using LPCRECT = const RECT*;

inline constexpr DWORD INFINITE = 0xFFFFFFFFu;
