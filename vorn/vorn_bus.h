/* SPDX-License-Identifier: Apache-2.0 */
/* A VORN bus for machines that have none: between the parts of a process, the processes of a machine, or
 * machines.
 *
 * A process opens the bus at an address, to which others send. It registers its modules as on any VORN bus
 * (nac_fwm_..._recv_init), sets handlers, and either polls or lets the bus run a receiving thread. What it
 * sends with Nac_...__sendmsg goes through the bus that it opened first, or that it chose with vorn_bus_use.
 *
 * One call of VORN_SendMsg or VORN_SendToMsg is one batch: all its messages arrive, in order and together, or
 * none. Batches from one thread to one address arrive in the order in which they were sent, and each
 * once, but for what the flag VORN_BUS_REPEATED marks. A send waits for a peer and for space in its queue, at
 * most send_timeout_ms. A batch that is dropped is counted. docs/bus.md describes what holds when peers or
 * servers come and go, and what is on the wire.
 *
 * Structs begin with their size, so that later versions can add members at the end: initialise a struct that
 * you hand over with its function ..._init below. A size that this library cannot take is
 * VORN_BUS_BAD_ARGUMENT, with a log line. Structs that the bus hands to handlers may grow at their end too:
 * do not copy them by a size of your own into arrays that others read.
 *
 * Functions may be called from any thread, except where they state otherwise. No C++ exception leaves them.
 * In a child process that was forked while a bus or a watch was open, they return VORN_BUS_NOT_OPEN, and
 * closing does nothing. Threads of the bus block all signals but those of faults (SIGSEGV, SIGBUS, SIGFPE,
 * SIGILL, SIGTRAP, SIGABRT, SIGSYS). */
#ifndef VORN_BUS_H
#define VORN_BUS_H

#include <stdint.h>
#include <string.h>

#include "bus/vorn_bus_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Results of the functions here, and of the four VORN functions. Nac_X__sendmsg and its like return the same,
 * or all-ones (-1 here) where the library refused and the bus was not called. */
enum {
    VORN_BUS_OK = 0,
    VORN_BUS_NOT_OPEN = 1,      /* no bus is open in this process, or it is being closed */
    VORN_BUS_BAD_ARGUMENT = 2,  /* a null pointer, a count of 0, a number out of its range, a wrong size */
    VORN_BUS_BAD_URL = 3,       /* not a URL of this bus; see vorn_bus_url_fault */
    VORN_BUS_ADDRESS_TAKEN = 4, /* another process, or another bus of this one, is open at the address */
    VORN_BUS_NO_PEER = 5,       /* nobody was open at the address in time; the batch was not sent */
    VORN_BUS_FULL =
        6, /* the queue to the receiver was full until the time was over; the batch was not sent */
    VORN_BUS_TOO_LARGE = 7, /* the batch is larger than this bus or its receiver takes; it was not sent */
    VORN_BUS_LOST = 8,      /* flush: batches that were accepted since the last flush are counted as lost */
    VORN_BUS_TIMEOUT = 9,   /* flush: batches are still on their way */
    VORN_BUS_BUSY = 11,     /* a handler polls the bus that called it, or a receiving thread polls */
    VORN_BUS_NO_TRANSPORT = 12,  /* built without the transport that the URL names */
    VORN_BUS_NO_MEMORY = 13,     /* nothing was done, or, when polling, the rest is done by the next poll */
    VORN_BUS_SYSTEM_ERROR = 14,  /* the system or a server refused; the log has its reason */
    VORN_BUS_HANDLER_FAILED = 15 /* poll: a C++ handler threw; see vorn_bus_handler */
};

/* The text of a result, -1 included: a few words without a full stop; and its name, "VORN_BUS_NO_PEER".
 * Constant. */
const char* vorn_bus_result_text(int32_t result);
const char* vorn_bus_result_name(int32_t result);

typedef struct vorn_bus vorn_bus;

/* A line for the host's log, without a time: whose it is ("vorn 7: " of the bus at address 7), how bad
 * ("error: " something failed here or is lost, "warning: " mostly what others did, "info: "), and a sentence.
 * It has no control characters and at most 1,003 bytes; of warnings there are at most ten a second. `text` is
 * valid until the function returns. Called from any thread. */
typedef void (*vorn_bus_log)(const char* text, void* context);

/* vorn_bus_options.check. */
enum {
    VORN_BUS_CHECK_FLAG = 0, /* the handler gets them with VORN_BUS_DAMAGED */
    VORN_BUS_CHECK_DROP = 1, /* they are counted, logged and left out */
    VORN_BUS_CHECK_NONE = 2  /* nobody looks: messages arrive without VORN_BUS_VERIFIED */
};

/* A member that is zero has the default in brackets. */
typedef struct vorn_bus_options {
    uint32_t size;           /* sizeof(vorn_bus_options) */
    uint32_t address;        /* to which others send; any number, also 0 */
    const char* url;         /* [VORN_BUS_URL of the environment, else "loop:"] see docs/bus.md */
    uint32_t queue_batches;  /* [1024] batches to one receiver that it has not handled yet */
    uint32_t queue_bytes;    /* [16 MiB] the same in bytes; one batch always fits */
    uint32_t batch_bytes;    /* [1,000,000] largest batch to send or take, with its envelope; up to 64 MiB */
    int32_t send_timeout_ms; /* [2000] how long a send waits for a peer and for space; negative: not at all */
    int32_t linger_ms; /* [1000] how long closing waits for batches on their way; negative: not at all */
    uint32_t check;    /* [VORN_BUS_CHECK_FLAG] what becomes of damaged messages */
    vorn_bus_log log;  /* [lines on standard error, with the time] */
    void* log_context;
    uint32_t send_only;      /* [0] 1: a sender to which nobody sends: it takes no address, no lock, no
                                stream; `address` is only what receivers see as the source */
    int32_t open_timeout_ms; /* [not at all] nats: how long opening waits for a server that is not up yet */
    uint32_t spin_us;        /* [not at all] ipc: how long a poll looks for batches before it sleeps */
    uint32_t reserved;       /* 0 */
} vorn_bus_options;

/* Defaults for all members. */
static inline vorn_bus_options vorn_bus_options_init(void) {
    vorn_bus_options options;
    memset(&options, 0, sizeof options);
    options.size = sizeof options;
    return options;
}

/* Opens a bus. The first one that is open in a process is that of VORN_SendMsg. */
int32_t vorn_bus_open(const vorn_bus_options* options, vorn_bus** bus);

/* Stops receiving, waits for batches on their way (linger_ms), closes and frees. Batches that have arrived
 * and are not handled by then go to the next process at the address; they are lost on loop, and on ipc where
 * their sender has ended too: see vorn_bus_drain. Not from a handler, and not while other functions use this
 * bus. Null is allowed. */
void vorn_bus_close(vorn_bus* bus);

/* From now on VORN_SendMsg and VORN_SendToMsg send through this bus. */
int32_t vorn_bus_use(vorn_bus* bus);

/* ---- receiving ---------------------------------------------------------------------------------- */

struct vorn_fault; /* what is wrong with a message: inspect/vorn_inspect.h */

/* Whether `length` received bytes are a valid message of that id, that is, whether its unpack reads them
 * without a fault: vorn_nac_verify of libvorn_nac_inspect, or what another package of messages brings.
 * Returns 0: valid; above 0: damaged, and on_fault was called with each fault, in the order of reading, until
 * it returned other than 0; below 0: it does not know the id. Called by the polling or the receiving thread;
 * it must return, and a C++ exception counts as an unknown id. */
typedef int32_t (*vorn_bus_verify)(uint32_t message_id, const uint8_t* bytes, uint32_t length,
                                   int32_t (*on_fault)(const struct vorn_fault* fault, void* context),
                                   void* context);

/* From now on the buses of this process ask this function about each message that has a handler; of several
 * they take the first that knows the id. Without any, no message is verified: unpack reports no fault to the
 * bus. */
int32_t vorn_bus_verify_with(vorn_bus_verify verify);

/* Flags of a message. */
#define VORN_BUS_REPEATED 1u /* the batch may have been handled before, in part or whole */
#define VORN_BUS_VERIFIED 2u /* valid, or VORN_BUS_DAMAGED; without it, nobody knows */
#define VORN_BUS_DAMAGED 4u  /* the record holds what stands before the first fault, and else zeros */

/* A message that has arrived; valid until the handler returns. Later versions may add members at the end. */
typedef struct vorn_bus_message {
    uint32_t message_id;
    uint32_t source;      /* the sender's address */
    uint32_t destination; /* this bus's address */
    uint32_t flags;       /* VORN_BUS_REPEATED, VORN_BUS_VERIFIED, VORN_BUS_DAMAGED */
    uint64_t target;      /* of VORN_SendToMsg, or 0 */
    const void* record;   /* of the registered type; all zero if the message is too short to be one */
    const uint8_t* packed;
    uint32_t record_bytes;
    uint32_t packed_bytes;
    const char* fault; /* what is wrong with a damaged message: "at 180, f15 of ..."; else null */
} vorn_bus_message;

/* Handlers of one bus run one at a time, in the polling or the receiving thread. They may send.
 *
 * A handler must return: longjmp, pthread_exit and cancellation out of it are not allowed. A C++ exception
 * that leaves it ends there. The message counts as handled, its record is freed, the other messages of the
 * batch get their handlers. The poll ends after that batch with VORN_BUS_HANDLER_FAILED; a receiving thread
 * logs a line and continues. */
typedef void (*vorn_bus_handler)(const vorn_bus_message* message, void* context);

/* Sets the handler for one message id; null removes it. */
int32_t vorn_bus_handle(vorn_bus* bus, uint32_t message_id, vorn_bus_handler handler, void* context);

/* Sets the handler for all ids without one of their own; null: such messages are counted and dropped. */
int32_t vorn_bus_handle_all(vorn_bus* bus, vorn_bus_handler handler, void* context);

/* Handles batches that have arrived, waiting for the first at most timeout_ms (0: not at all, negative: for
 * ever), and at most max_batches of them (0: all that are there when the first is found; not those that come
 * meanwhile). `handled` (may be null) is set to their number, whatever the result. */
int32_t vorn_bus_poll(vorn_bus* bus, int32_t timeout_ms, uint32_t max_batches, uint32_t* handled);

/* A poll that waits, or the next one that would, returns VORN_BUS_OK without having handled anything. */
int32_t vorn_bus_wake(vorn_bus* bus);

/* Receives no more, and handles what only this process has: on ipc what senders have left that have ended; on
 * loop and nats what has arrived. What others still have waits for the next process at the address. Takes at
 * most timeout_ms, and as long as the running handler; VORN_BUS_TIMEOUT: some is left, and is lost by
 * closing. Sending goes on. Not from a handler, and not while a receiving thread runs. */
int32_t vorn_bus_drain(vorn_bus* bus, int32_t timeout_ms);

/* A file descriptor for poll or epoll that is readable while vorn_bus_poll has something to do. It belongs to
 * the bus, and must not be read. Negative: the system refused. */
int vorn_bus_descriptor(vorn_bus* bus);

/* Lets the bus poll in a thread of its own, until it is stopped or closed. Where memory is lacking, the
 * thread logs a line and tries again. */
int32_t vorn_bus_start(vorn_bus* bus);

/* Ends that thread once the running handler has returned. Not from a handler. */
int32_t vorn_bus_stop(vorn_bus* bus);

/* Calls the clean-up functions that modules have registered, in their order. */
void vorn_bus_clean_resources(void);

/* ---- sending ------------------------------------------------------------------------------------ */

/* VORN_SendToMsg through a bus that is named. Target 0 is none. */
int32_t vorn_bus_send(vorn_bus* bus, uint32_t destination, const VORN_SendDescriptor* descriptors,
                      uint32_t count, uint64_t target);

/* How long sends of the calling thread wait from now on, through any bus: milliseconds, 0 not at all; below
 * 0, as at first, what each bus has as its send_timeout_ms. Returns what was set before. */
int32_t vorn_bus_send_timeout(int32_t timeout_ms);

/* Waits until all that was accepted has been handled by its receivers (nats: is stored), at most timeout_ms
 * (negative: for ever). VORN_BUS_LOST is returned once for batches that were lost since the last flush. Not
 * from a handler that handles what this bus has sent to itself. */
int32_t vorn_bus_flush(vorn_bus* bus, int32_t timeout_ms);

/* ---- counters ----------------------------------------------------------------------------------- */

typedef struct vorn_bus_counters {
    uint32_t size;                /* sizeof(vorn_bus_counters), set before they are read */
    uint32_t reserved;            /* 0 */
    uint64_t sent_batches;        /* accepted: the send returned 0 */
    uint64_t sent_messages;       /* the messages in them */
    uint64_t refused_batches;     /* the send returned something else */
    uint64_t lost_batches;        /* accepted, and not known to have been handled when their receiver ended */
    uint64_t unhandled_batches;   /* accepted, and on their way now: the depth of the queues to others */
    uint64_t received_batches;    /* handled */
    uint64_t received_messages;   /* given to a handler */
    uint64_t waiting_batches;     /* arrived, and not handled yet: the depth of the queue to this process */
    uint64_t unknown_messages;    /* arrived, of an id that nobody registered */
    uint64_t ignored_messages;    /* arrived, of an id that has no handler */
    uint64_t damaged;             /* envelopes or packets that do not hold what they claim */
    uint64_t redelivered_batches; /* arrived again, and left out */
    uint64_t missed_batches;      /* nats: messages gone from the server before they were handled */
    uint64_t damaged_messages;    /* verified, and damaged: given to a handler, or dropped */
} vorn_bus_counters;

static inline vorn_bus_counters vorn_bus_counters_init(void) {
    vorn_bus_counters counters;
    memset(&counters, 0, sizeof counters);
    counters.size = sizeof counters;
    return counters;
}

/* Fills the struct up to its size; counters that this library does not know become 0. */
int32_t vorn_bus_read_counters(vorn_bus* bus, vorn_bus_counters* counters);

/* The counters of the bus that is open at an address, asked over the wire. `url` as in vorn_bus_options; no
 * bus need be open here, except on loop:. Creates nothing, on a server neither. */
int32_t vorn_bus_ask_counters(const char* url, uint32_t address, int32_t timeout_ms,
                              vorn_bus_counters* counters);

/* ---- URLs and addresses ------------------------------------------------------------------------- */

/* The URL with which a bus is or would be opened, for people: `url`, or the default for null, with *** for
 * what stands before an '@' (a user's name, a password, a token). Valid until the thread calls this again. */
const char* vorn_bus_display_url(const char* url);

/* Which part of a URL (or of the default, for null) is wrong, what is there and what is to be, in a sentence
 * without a full stop; null: it is valid. What may be a password is not in it. Valid until the thread calls
 * this again. */
const char* vorn_bus_url_fault(const char* url);

/* The endpoint at which a bus takes what is sent to its address, for people: "ipc:///run/user/1/vorn/7.sock";
 * empty for a pure sender on ipc. Valid while the bus is open. */
const char* vorn_bus_endpoint(const vorn_bus* bus);

/* The folder of ipc:// without one: $XDG_RUNTIME_DIR/vorn, or .vorn in the user's home. Constant text. */
const char* vorn_bus_default_folder(void);

/* An address that vorn_bus_list has found. Later versions may add members at the end. */
typedef struct vorn_bus_listed {
    uint32_t address;
    uint32_t is_open;      /* 1: a bus is open there; 0: what it left is there: a socket's file, a stream */
    const char* endpoint;  /* as from vorn_bus_endpoint */
    uint64_t stored_bytes; /* nats: what waits in the stream; else 0: senders have it */
} vorn_bus_listed;

/* What it is given is valid until it returns. It must return, like a handler; an exception ends the list. */
typedef void (*vorn_bus_list_handler)(const vorn_bus_listed* listed, void* context);

/* Calls the handler for each address in ipc's folder, under the prefix on nats' servers or in this process's
 * loop, in ascending order. */
int32_t vorn_bus_list(const char* url, vorn_bus_list_handler handler, void* context);

/* Removes what the bus left that was open at an address: a socket's file; on nats its stream with all that
 * waits there, which is lost. VORN_BUS_ADDRESS_TAKEN: a bus is open there; VORN_BUS_NO_PEER: there is
 * nothing. */
int32_t vorn_bus_remove(const char* url, uint32_t address);

/* ---- watching ----------------------------------------------------------------------------------- */

/* A watcher sees copies of the batches that others take, and has no address of its own. It disturbs nobody: a
 * receiver never waits for it. Copies for which a slow watcher has no space are dropped and counted. */
typedef struct vorn_bus_watch vorn_bus_watch;

/* A member that is zero has the default in brackets. */
typedef struct vorn_bus_watch_options {
    uint32_t size;             /* sizeof(vorn_bus_watch_options) */
    uint32_t queue_bytes;      /* [16 MiB] copies that have not been handled yet */
    const char* url;           /* as in vorn_bus_options; of loop: only the buses of this process are seen */
    const uint32_t* addresses; /* [all] whose arrivals to watch */
    uint32_t address_count;
    uint32_t reserved; /* 0 */
    vorn_bus_log log;  /* [lines on standard error, with the time] */
    void* log_context;
} vorn_bus_watch_options;

static inline vorn_bus_watch_options vorn_bus_watch_options_init(void) {
    vorn_bus_watch_options options;
    memset(&options, 0, sizeof options);
    options.size = sizeof options;
    return options;
}

/* A message that another has taken; valid until the handler returns. Later versions may add members at the
 * end. */
typedef struct vorn_bus_watched {
    uint64_t time;        /* nanoseconds since 1970, when it was taken; on nats, when it was seen */
    uint64_t target;      /* of VORN_SendToMsg, or 0 */
    uint32_t message_id;  /* registered or not */
    uint32_t source;      /* the sender's address */
    uint32_t destination; /* the receiver's */
    uint32_t position;    /* in its batch, from 0 */
    uint32_t count;       /* of messages in the batch; the last has position count - 1 */
    uint32_t packed_bytes;
    const uint8_t* packed;
} vorn_bus_watched;

/* Must return, like vorn_bus_handler; a C++ exception has the same consequences. */
typedef void (*vorn_bus_watch_handler)(const vorn_bus_watched* message, void* context);

typedef struct vorn_bus_watch_counters {
    uint32_t size;          /* sizeof(vorn_bus_watch_counters), set before they are read */
    uint32_t reserved;      /* 0 */
    uint64_t batches;       /* handled */
    uint64_t messages;      /* in them */
    uint64_t lost_batches;  /* taken by others, their copies dropped on the way or here */
    uint64_t damaged;       /* packets or envelopes that do not hold what they claim */
    uint64_t receivers;     /* that send copies now; on nats 1 while the server is connected */
    uint64_t interruptions; /* receivers or servers that were gone and came again; what was taken until they
                               knew of the watcher again was not seen */
} vorn_bus_watch_counters;

static inline vorn_bus_watch_counters vorn_bus_watch_counters_init(void) {
    vorn_bus_watch_counters counters;
    memset(&counters, 0, sizeof counters);
    counters.size = sizeof counters;
    return counters;
}

/* Begins to watch. Receivers that open later are seen too. */
int32_t vorn_bus_watch_open(const vorn_bus_watch_options* options, vorn_bus_watch** watch);

/* Null is allowed. Not from its handler, and not while other functions use it. */
void vorn_bus_watch_close(vorn_bus_watch* watch);

/* Handles copies that have arrived, waiting for the first at most timeout_ms (0: not at all, negative: for
 * ever), and at most max_batches of them (0: all that are there). `handled` (may be null) is set to their
 * number, whatever the result. One thread at a time, and not from the handler. */
int32_t vorn_bus_watch_poll(vorn_bus_watch* watch, int32_t timeout_ms, uint32_t max_batches,
                            vorn_bus_watch_handler handler, void* context, uint32_t* handled);

/* As vorn_bus_read_counters. */
int32_t vorn_bus_watch_read_counters(vorn_bus_watch* watch, vorn_bus_watch_counters* counters);

#ifdef __cplusplus
}
#endif

#endif
