// Result codes and the export macro shared by every part of the module.
#pragma once

#include <cstdint>

typedef int32_t HRESULT;

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;  // "nothing (more)", or a value delivered through an input binding
constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001);
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003);
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
constexpr HRESULT E_BREAK = static_cast<HRESULT>(0x80004037);  // the client asked to break
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);
constexpr HRESULT E_REGISTRY_UNAVAILABLE = static_cast<HRESULT>(0x80040010);

inline bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
inline bool FAILED(HRESULT hr) { return hr < 0; }

// Symbols that a host looks up are exported from the module; everything else is hidden.
// The reference host compiles the same headers without WKS_BUILDING_MODULE, so its copies
// of the identifier variables stay private to it and never interpose on the module's.
#if defined(WKS_BUILDING_MODULE)
#define WKS_EXPORT __attribute__((visibility("default")))
#else
#define WKS_EXPORT
#endif
// Process-wide sharing (the lazy factory slots) needs default visibility in every module.
#define WKS_SHARED __attribute__((visibility("default")))
