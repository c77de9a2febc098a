/* SPDX-License-Identifier: Apache-2.0 */
/* The messages of the Lease package: a server grants addresses to clients for a time.
 *
 * A client asks with Lease_Request, and the server answers with Lease_Grant. Either of them ends a lease with
 * Lease_Release. Lease_PoolReport has what a pool has granted. bus/message_functions.h says what the
 * functions of a message do. */
#ifndef LEASE_H
#define LEASE_H

#include "bus/message_functions.h"
#include "inspect/vorn_inspect.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- tables inside messages ------------------------------------------------------------------------- */

/* An address of both kinds. */
typedef struct Lease_Address {
    uint32_t f0;    /* IPv4 */
    uint8_t f1[16]; /* IPv6 */
} Lease_Address;

/* An option, numbered by its kind. */
typedef struct Lease_Option {
    uint16_t f0;
    uint8_t f1[8]; /* its value */
} Lease_Option;

/* A lease of a pool. */
typedef struct Lease_Binding {
    uint8_t f0[6]; /* the client's hardware address */
    Lease_Address f1;
    uint64_t f2; /* when it ends: milliseconds since 1970 */
} Lease_Binding;

/* ---- module client ---------------------------------------------------------------------------------- */

/* Asks for an address. */
typedef struct Lease_Request {
    uint32_t f0;   /* the request's number, chosen by the client */
    uint8_t f1[6]; /* the client's hardware address */
    uint32_t f2_count;
    uint8_t* f2; /* the client's name */
    uint32_t f3_count;
    uint16_t* f3; /* kinds of options that it wants */
} Lease_Request;
VORN_MESSAGE_FUNCTIONS(Lease_Request);
#define Lease_Request_ID 0x92C9EE82u

/* Grants an address. */
typedef struct Lease_Grant {
    uint32_t f0;      /* the request's number */
    uint32_t f1;      /* duration in seconds */
    Lease_Address f2; /* for the client */
    Lease_Address f3; /* of the server */
    uint32_t f4_count;
    Lease_Option* f4;
    uint64_t f5;    /* when it was granted: milliseconds since 1970 */
    uint8_t f6;     /* 1: the client had it before */
    uint16_t f7[4]; /* VLANs, the first three of others */
    uint32_t f8_count;
    uint32_t* f8; /* IPv4 addresses of name servers */
} Lease_Grant;
VORN_MESSAGE_FUNCTIONS(Lease_Grant);
#define Lease_Grant_ID 0x3C5264DDu

/* Ends a lease. */
typedef struct Lease_Release {
    uint32_t f0; /* the request's number */
    uint8_t f1[6];
    Lease_Address f2;
    uint16_t f3; /* reason */
} Lease_Release;
VORN_MESSAGE_FUNCTIONS(Lease_Release);
#define Lease_Release_ID 0xE2AEEB2Eu

VORN_MODULE_FUNCTIONS(lease_client);

/* ---- module pool ------------------------------------------------------------------------------------ */

/* What a pool holds. */
typedef struct Lease_PoolReport {
    uint16_t f0; /* the pool's VLAN */
    uint32_t f1_count;
    Lease_Binding* f1;
    uint32_t f2_count;
    uint64_t* f2; /* how many leases ended, hour by hour */
} Lease_PoolReport;
VORN_MESSAGE_FUNCTIONS(Lease_PoolReport);
#define Lease_PoolReport_ID 0x91514D4Du

VORN_MODULE_FUNCTIONS(lease_pool);

VORN_CATALOGUE_FUNCTIONS(lease);

/* ---- lists ------------------------------------------------------------------------------------------ */

#define LEASE_CLIENT_MESSAGES(MESSAGE) MESSAGE(Lease_Request) MESSAGE(Lease_Grant) MESSAGE(Lease_Release)
#define LEASE_POOL_MESSAGES(MESSAGE) MESSAGE(Lease_PoolReport)

#define LEASE_ALL_MESSAGES(MESSAGE) LEASE_CLIENT_MESSAGES(MESSAGE) LEASE_POOL_MESSAGES(MESSAGE)

/* Of each module: its name, the prefix of its functions, its messages. */
#define LEASE_ALL_MODULES(MODULE)                       \
    MODULE(client, lease_client, LEASE_CLIENT_MESSAGES) \
    MODULE(pool, lease_pool, LEASE_POOL_MESSAGES)

#ifdef __cplusplus
}
#endif

#endif
