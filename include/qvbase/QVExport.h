// QVExport.h - marks what the shared library exports.
// Part of qvbase, the QVKernel foundation class library.
//
// QVBASE_API goes on every exported class, function and object. The library
// is built with hidden visibility, so whatever lacks it stays internal.
#pragma once

#if defined(_WIN32)
#if defined(QVBASE_BUILDING_LIBRARY)
#define QVBASE_API __declspec(dllexport)
#else
#define QVBASE_API __declspec(dllimport)
#endif
#else
#define QVBASE_API __attribute__((visibility("default")))
#endif
