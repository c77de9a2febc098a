// SPDX-License-Identifier: Apache-2.0
// What is inlined whatever the compiler thinks of it.
#ifndef KAPLO_INLINE_H
#define KAPLO_INLINE_H

// Not where branches are counted: there each copy would count.
#ifdef KAPLO_COUNTED
#define KAPLO_INLINE
#else
#define KAPLO_INLINE __attribute__((always_inline))
#endif

#endif
