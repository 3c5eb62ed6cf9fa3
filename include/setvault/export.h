// Symbol visibility for the public API of libsetvault.
//
// The library is built with hidden visibility; only declarations marked
// SETVAULT_EXPORT are part of its ABI.
#ifndef SETVAULT_EXPORT_H_
#define SETVAULT_EXPORT_H_

#if defined(__GNUC__) || defined(__clang__)
#define SETVAULT_EXPORT __attribute__((visibility("default")))
#else
#define SETVAULT_EXPORT
#endif

#endif  // SETVAULT_EXPORT_H_
