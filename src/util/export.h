#ifndef OSTREL_UTIL_EXPORT_H
#define OSTREL_UTIL_EXPORT_H

/* Marks what OstrelFilterLib.dll exports. Plain C, because api/exports.h needs it too. A program that is
   built from the same sources neither exports nor imports them: it defines OSTREL_LINKED_STATICALLY. */
#if !defined(_WIN32) || defined(OSTREL_LINKED_STATICALLY)
#define OSTREL_EXPORT
#elif defined(OSTREL_BUILDING_LIBRARY)
#define OSTREL_EXPORT __declspec(dllexport)
#else
#define OSTREL_EXPORT __declspec(dllimport)
#endif

#endif
