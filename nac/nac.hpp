// SPDX-License-Identifier: Apache-2.0
// The messages of the Nac package and the VORN bus for C++20, over the C functions of nac_messages.h,
// vorn_inspect.h and vorn_bus.h: records that free themselves, spans, typed handlers. Header only; link
// vorn_nac::host and vorn_nac::inspect.
//
//     nac::Bus bus;
//     if (const nac::Result opened = bus.open(2); !opened) ...opened.text()...
//     bus.on<Nac_SetPortMsg>([](const Nac_SetPortMsg& record, const nac::Origin& origin) { ... });
//     while (bus.poll(std::chrono::seconds(10))) ...
//
// What the C functions refuse is a result; nothing here throws but std::bad_alloc, and poll() what a handler
// throws.
#ifndef NAC_HPP
#define NAC_HPP

#include "nac/owned_records.hpp"
#include "nac/typed_bus.hpp"

#endif
