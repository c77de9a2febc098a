// SPDX-License-Identifier: Apache-2.0
// What is inlined, and what is not, whatever the compiler thinks of it.
#ifndef KAPLO_INLINE_H
#define KAPLO_INLINE_H

// Not where branches are counted: there each copy would count.
#ifdef KAPLO_COUNTED
#define KAPLO_INLINE
#else
#define KAPLO_INLINE __attribute__((always_inline))
#endif

// What serves a wire of the other byte order: short rather than quick, unless that is the order of this
// build.
#ifdef KAPLO_BYTE_SWAP
#define KAPLO_FOR_REVERSED __attribute__((noinline))
#else
#define KAPLO_FOR_REVERSED __attribute__((noinline, cold))
#endif

#endif
