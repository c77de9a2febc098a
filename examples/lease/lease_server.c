/* SPDX-License-Identifier: Apache-2.0 */
/* The server: lease_server COUNT answers COUNT requests at address 1, reports to address 3 what it granted,
 * and ends. VORN_BUS_URL names the bus. */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "lease.h"
#include "vorn/vorn_bus.h"

enum { kServer = 1, kReports = 3, kMostLeases = 16, kDuration = 3600, kVlan = 20, kDomainOption = 15 };

static Lease_Binding bindings[kMostLeases];
static uint32_t granted = 0;
static uint32_t result_of_answer = VORN_BUS_OK;

/* Runs inside vorn_bus_poll. */
static void on_request(const vorn_bus_message* message, void* context) {
    const Lease_Request* const request = message->record;
    Lease_Option domain = {kDomainOption, "lan"};
    uint32_t name_servers[] = {0x0A000001, 0x0A000002};
    Lease_Binding* const binding = &bindings[granted % kMostLeases];
    Lease_Grant grant = {0};
    (void)context;
    if (message->fault != NULL) {
        fprintf(stderr, "lease_server: a damaged request: %s\n", message->fault);
        return;
    }
    printf("request %" PRIu32 " of %.*s\n", request->f0, (int)request->f2_count, (const char*)request->f2);
    memcpy(binding->f0, request->f1, sizeof binding->f0);
    binding->f1.f0 = 0x0A000000 + 10 + granted++;

    grant.f0 = request->f0;
    grant.f1 = kDuration;
    grant.f2 = binding->f1;
    grant.f3.f0 = 0x0A000001;
    if (request->f3_count != 0) { /* of all options this server has one */
        grant.f4_count = 1;
        grant.f4 = &domain;
    }
    grant.f7[0] = kVlan;
    grant.f8_count = 2;
    grant.f8 = name_servers;
    result_of_answer = Lease_Grant__sendmsg(message->source, &grant, 1);
}

int main(int argc, char** argv) {
    const uint32_t count = argc == 2 ? (uint32_t)strtoul(argv[1], NULL, 10) : 0;
    vorn_bus_options options = vorn_bus_options_init();
    vorn_bus* bus = NULL;
    uint32_t handled = 1;
    int32_t result = lease_client_recv_init();
    Lease_PoolReport report = {kVlan, 0, bindings, 0, NULL};
    if (count == 0 || count > kMostLeases) {
        fprintf(stderr, "usage: lease_server COUNT, from 1 to %d\n", kMostLeases);
        return 2;
    }
    options.address = kServer;
    options.send_timeout_ms = 10000; /* who gets the report may still be starting */
    if (result == VORN_BUS_OK) result = vorn_bus_verify_with(vorn_lease_verify);
    if (result == VORN_BUS_OK) result = vorn_bus_open(&options, &bus);
    if (result == VORN_BUS_OK) result = vorn_bus_handle(bus, Lease_Request_ID, on_request, NULL);
    while (result == VORN_BUS_OK && handled != 0 && granted < count) {
        result = vorn_bus_poll(bus, 10000, 1, &handled);
        if (result == VORN_BUS_OK) result = (int32_t)result_of_answer;
    }
    report.f1_count = granted;
    if (result == VORN_BUS_OK) result = (int32_t)Lease_PoolReport__sendmsg(kReports, &report, 1);
    if (result == VORN_BUS_OK) result = vorn_bus_flush(bus, 10000);
    vorn_bus_close(bus);
    if (result != VORN_BUS_OK) fprintf(stderr, "lease_server: %s\n", vorn_bus_result_text(result));
    return result != VORN_BUS_OK ? 3 : handled != 0 ? 0 : 1; /* 1: no request for ten seconds */
}
