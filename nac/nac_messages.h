/* SPDX-License-Identifier: Apache-2.0 */
/* libvorn_nac_user: the typed messages of the Nac package (network access control) on the VORN bus.
 *
 * Every message type has a record, a plain struct, followed by its seven functions (NAC_MESSAGE_FUNCTIONS)
 * and its id on the bus: the 32-bit FNV-1a hash of "Nac.SetPortMsg" is Nac_SetPortMsg_ID.
 * Every module has three functions, at the end of this file. Other records travel only inside records.
 *
 * Fields are named by field id. Known of them here are kind and width, and, where a comment at the field says
 * so, that an array is a hardware address, an IPv6 address or a byte string. What a value stands for, which
 * number is a port or a time and which byte string a name, sender and receiver agree on elsewhere.
 *
 * Integers are in the host's byte order. A vector is f<N>_count elements in the array at f<N>; empty is count
 * 0 with a null pointer. Arrays are held inline.
 *
 * Threads: every function may be called from any thread at any time; none keeps a pointer to a record or
 * a buffer after it has returned. Two calls must not share a record or a buffer that one of them writes.
 *
 * Memory and logging come from the host (zeb_osal_api.h) if it has them; the bus is vorn_bus_api.h. */
#ifndef NAC_MESSAGES_H
#define NAC_MESSAGES_H

#include "bus/message_functions.h"

#define NAC_API VORN_API

/* What pack and the send functions return when they refuse before anything reached the bus. */
#define NAC_REFUSED VORN_REFUSED

/* The seven functions of a message type: bus/message_functions.h says what each does. */
#define NAC_MESSAGE_FUNCTIONS(Message) VORN_MESSAGE_FUNCTIONS(Message)

#ifdef __cplusplus
extern "C" {
#endif

/* ---- module dataflow ---------------------------------------------------------------------------- */

/* Data-flow settings. Record 32 bytes, compact 20 to 52, fixed image 56. */
typedef struct Nac_UserDataFlowCfg {
    uint64_t f0;
    uint64_t f1;
    uint64_t f2;
    uint64_t f3;
} Nac_UserDataFlowCfg;
NAC_MESSAGE_FUNCTIONS(Nac_UserDataFlowCfg);
#define Nac_UserDataFlowCfg_ID 0x67B1E31Cu

/* One user's data-flow information. Record 136 bytes, compact 104 to 240, fixed image 256. */
typedef struct Nac_UserDataFlowInfo {
    uint32_t f0;
    uint32_t f1;
    Nac_UserDataFlowCfg f2;
    Nac_UserDataFlowCfg f3;
    Nac_UserDataFlowCfg f4;
    Nac_UserDataFlowCfg f5;
} Nac_UserDataFlowInfo;
NAC_MESSAGE_FUNCTIONS(Nac_UserDataFlowInfo);
#define Nac_UserDataFlowInfo_ID 0x4DDC107Eu

/* A list of data-flow information. Record 16 bytes, compact 14, or 22 and 104 to 240 an element. */
typedef struct Nac_UserDataFlowMsg {
    uint32_t f0_count;
    Nac_UserDataFlowInfo* f0;
} Nac_UserDataFlowMsg;
NAC_MESSAGE_FUNCTIONS(Nac_UserDataFlowMsg);
#define Nac_UserDataFlowMsg_ID 0x1824A7EBu

/* A data-flow query. Record 8 bytes, compact 16 to 24, fixed image 24. */
typedef struct Nac_UserDataFlowQueryMsg {
    uint32_t f0;
    uint32_t f1;
} Nac_UserDataFlowQueryMsg;
NAC_MESSAGE_FUNCTIONS(Nac_UserDataFlowQueryMsg);
#define Nac_UserDataFlowQueryMsg_ID 0x2D4DDDF7u

/* The answer to a query. Record 144 bytes, compact 120 to 260, fixed image 280. */
typedef struct Nac_UserDataFlowQueryAckMsg {
    uint32_t f0;
    Nac_UserDataFlowInfo f1;
} Nac_UserDataFlowQueryAckMsg;
NAC_MESSAGE_FUNCTIONS(Nac_UserDataFlowQueryAckMsg);
#define Nac_UserDataFlowQueryAckMsg_ID 0x07987F08u

/* ---- module evt --------------------------------------------------------------------------------- */

/* A port's VLAN has changed. Record 12 bytes, compact 18 to 28, fixed image 32. */
typedef struct Nac_PortVlanChangeMsg {
    uint32_t f0;
    uint32_t f1;
    uint16_t f2;
} Nac_PortVlanChangeMsg;
NAC_MESSAGE_FUNCTIONS(Nac_PortVlanChangeMsg);
#define Nac_PortVlanChangeMsg_ID 0xDDDBF760u

/* ---- module port -------------------------------------------------------------------------------- */

/* A setting for a port. Record 8 bytes, compact 16 to 24, fixed image 24. */
typedef struct Nac_SetPortMsg {
    uint32_t f0;
    uint32_t f1;
} Nac_SetPortMsg;
NAC_MESSAGE_FUNCTIONS(Nac_SetPortMsg);
#define Nac_SetPortMsg_ID 0x09B58155u

/* ---- module uclgroup ---------------------------------------------------------------------------- */

/* One UCL group address entry. Record 20 bytes, compact 22 to 39, fixed image 48. */
typedef struct Nac_CfgUclGroupIp {
    uint32_t f0;
    uint32_t f1;
    uint32_t f2;
    uint32_t f3;
    uint8_t f4;
} Nac_CfgUclGroupIp;
NAC_MESSAGE_FUNCTIONS(Nac_CfgUclGroupIp);
#define Nac_CfgUclGroupIp_ID 0xDCF172EBu

/* Configures an access user's UCL group address. Record 24 bytes, compact 38 to 56, fixed image 72. */
typedef struct Nac_ConfigAccessUserUclGroupIpMsg {
    uint8_t f0;
    Nac_CfgUclGroupIp f1;
} Nac_ConfigAccessUserUclGroupIpMsg;
NAC_MESSAGE_FUNCTIONS(Nac_ConfigAccessUserUclGroupIpMsg);
#define Nac_ConfigAccessUserUclGroupIpMsg_ID 0xEA1A4E5Du

/* Its acknowledgement. Record 28 bytes, compact 40 to 62, fixed image 80. */
typedef struct Nac_ConfigAccessUserUclGroupIpAckMsg {
    uint32_t f0;
    uint8_t f1;
    Nac_CfgUclGroupIp f2;
} Nac_ConfigAccessUserUclGroupIpAckMsg;
NAC_MESSAGE_FUNCTIONS(Nac_ConfigAccessUserUclGroupIpAckMsg);
#define Nac_ConfigAccessUserUclGroupIpAckMsg_ID 0x790D218Au

/* Many configurations at once. Record 16 bytes, compact 16 to 20, and 8 and 38 to 56 an element. */
typedef struct Nac_UclGroupIpArray {
    uint32_t f0;
    uint32_t f1_count;
    Nac_ConfigAccessUserUclGroupIpMsg* f1;
} Nac_UclGroupIpArray;
NAC_MESSAGE_FUNCTIONS(Nac_UclGroupIpArray);
#define Nac_UclGroupIpArray_ID 0xA7B682F4u

/* Many acknowledgements at once. Record 16 bytes, compact 16 to 20, and 8 and 40 to 62 an element. */
typedef struct Nac_UclGroupIpAckArray {
    uint32_t f0;
    uint32_t f1_count;
    Nac_ConfigAccessUserUclGroupIpAckMsg* f1;
} Nac_UclGroupIpAckArray;
NAC_MESSAGE_FUNCTIONS(Nac_UclGroupIpAckArray);
#define Nac_UclGroupIpAckArray_ID 0x542827C5u

/* ---- module user_type --------------------------------------------------------------------------- */

/* The addresses of a downloadable ACL rule. Record 124 bytes, compact 192 to 239, fixed image 240. */
typedef struct Nac_DaclRuleIpInfo {
    uint32_t f0;
    uint32_t f1;
    uint32_t f2;
    uint32_t f3;
    uint8_t f4[16]; /* IPv6 addresses, network byte order */
    uint8_t f5[16];
    uint8_t f6[16];
    uint8_t f7[16];
    uint16_t f8;
    uint16_t f9;
    uint16_t f10;
    uint16_t f11;
    uint16_t f12;
    uint16_t f13;
    uint16_t f14;
    uint16_t f15;
    uint8_t f16[6]; /* hardware addresses */
    uint8_t f17[6];
    uint16_t f18;
    uint16_t f19;
    uint16_t f20;
    uint16_t f21;
    uint8_t f22;
    uint8_t f23;
    uint8_t f24;
    uint8_t f25;
    uint8_t f26;
    uint16_t f27;
} Nac_DaclRuleIpInfo;
NAC_MESSAGE_FUNCTIONS(Nac_DaclRuleIpInfo);
#define Nac_DaclRuleIpInfo_ID 0xD65D70E6u

/* A downloadable ACL rule as a RADIUS server hands it out. Record 148 bytes, compact 218 to 286, fixed
 * image 296. */
typedef struct Nac_RadiusDaclRule {
    uint8_t f0;
    uint32_t f1;
    uint32_t f2;
    uint32_t f3;
    uint32_t f4;
    uint32_t f5;
    Nac_DaclRuleIpInfo f6;
} Nac_RadiusDaclRule;
NAC_MESSAGE_FUNCTIONS(Nac_RadiusDaclRule);
#define Nac_RadiusDaclRule_ID 0x2FEB16ADu

/* User detection settings. Record 8 bytes, compact 18 to 24, fixed image 32. */
typedef struct Nac_UserDetectInfo {
    uint8_t f0;
    uint8_t f1;
    uint32_t f2;
} Nac_UserDetectInfo;
NAC_MESSAGE_FUNCTIONS(Nac_UserDetectInfo);
#define Nac_UserDetectInfo_ID 0x6AE6D195u

/* ---- module user -------------------------------------------------------------------------------- */

/* An IPv6 address as an element of a list. Record 16 bytes. Travels only inside other records. */
typedef struct Nac_Ipv6Addr {
    uint8_t f0[16];
} Nac_Ipv6Addr;

/* Rates of a service. Record 20 bytes. Travels only inside other records. */
typedef struct Nac_SrvCar {
    uint8_t f0;
    uint32_t f1;
    uint32_t f2;
    uint32_t f3;
    uint32_t f4;
} Nac_SrvCar;

/* One entry of the access-user table. Record 328 bytes, compact 238 and more. */
typedef struct Nac_SetUserTableMsg {
    uint32_t f0;
    uint32_t f1;
    uint32_t f2;
    uint32_t f3;
    uint32_t f4;
    uint8_t f5[6]; /* hardware address */
    uint32_t f6;
    uint32_t f7;
    uint32_t f8;
    uint32_t f9;
    uint32_t f10;
    uint32_t f11;
    uint32_t f12_count;
    Nac_Ipv6Addr* f12;
    uint32_t f13;
    uint8_t f14;
    uint32_t f15_count;
    uint16_t* f15;
    uint32_t f16_count;
    uint16_t* f16;
    uint16_t f17;
    uint16_t f18;
    Nac_SrvCar f19;
    Nac_SrvCar f20;
    uint16_t f21;
    uint16_t f22;
    uint16_t f23;
    uint8_t f24;
    uint16_t f25;
    uint8_t f26;
    uint8_t f27;
    uint32_t f28;
    uint8_t f29;
    uint8_t f30;
    uint32_t f31_count;
    uint8_t* f31; /* byte string, no terminator */
    uint32_t f32_count;
    Nac_RadiusDaclRule* f32;
    Nac_UserDetectInfo f33;
    uint8_t f34;
    uint8_t f35;
    uint8_t f36;
    uint8_t f37;
    uint32_t f38;
    uint32_t f39;
    uint32_t f40;
    uint8_t f41;
    uint32_t f42_count;
    uint8_t* f42; /* byte string, no terminator */
    uint32_t f43;
    uint8_t f44;
    uint8_t f45;
    uint8_t f46;
    uint64_t f47;
    uint8_t f48;
    uint8_t f49;
    uint8_t f50;
    uint32_t f51_count;
    uint8_t* f51; /* byte string, no terminator */
    uint32_t f52_count;
    uint32_t* f52;
    uint16_t f53[16];
    uint8_t f54;
} Nac_SetUserTableMsg;
NAC_MESSAGE_FUNCTIONS(Nac_SetUserTableMsg);
#define Nac_SetUserTableMsg_ID 0x47986D1Du

/* Acknowledges a table entry. Record 36 bytes, compact 30 to 64, fixed image 72. */
typedef struct Nac_SetUserTableAckMsg {
    uint32_t f0;
    uint32_t f1;
    uint32_t f2;
    uint32_t f3;
    uint16_t f4;
    uint32_t f5;
    uint32_t f6;
    uint32_t f7;
    uint32_t f8;
} Nac_SetUserTableAckMsg;
NAC_MESSAGE_FUNCTIONS(Nac_SetUserTableAckMsg);
#define Nac_SetUserTableAckMsg_ID 0x2198074Au

/* A table entry was hit. Record 24 bytes, compact 24 to 48, fixed image 48. */
typedef struct Nac_UserTableHitMsg {
    uint32_t f0;
    uint32_t f1;
    uint32_t f2;
    uint32_t f3;
    uint32_t f4;
    uint32_t f5;
} Nac_UserTableHitMsg;
NAC_MESSAGE_FUNCTIONS(Nac_UserTableHitMsg);
#define Nac_UserTableHitMsg_ID 0xDC29F120u

/* Layer 2 says that an access user went offline. Record 32 bytes, compact 42 to 68, fixed image 72. */
typedef struct Nac_L2NotifyNacUserOfflineMsg {
    uint32_t f0;
    uint32_t f1;
    uint32_t f2;
    uint16_t f3;
    uint8_t f4[6]; /* hardware address */
    uint32_t f5;
    uint32_t f6;
    uint32_t f7;
} Nac_L2NotifyNacUserOfflineMsg;
NAC_MESSAGE_FUNCTIONS(Nac_L2NotifyNacUserOfflineMsg);
#define Nac_L2NotifyNacUserOfflineMsg_ID 0x03ED5F77u

/* A table's version has changed. Record 4 bytes, compact 14 to 18, fixed image 24. */
typedef struct Nac_TableVersionChangeMsg {
    uint32_t f0;
} Nac_TableVersionChangeMsg;
NAC_MESSAGE_FUNCTIONS(Nac_TableVersionChangeMsg);
#define Nac_TableVersionChangeMsg_ID 0x73821176u

/* Acknowledges a table synchronisation. Record 20 bytes, compact 22 to 42, fixed image 48. */
typedef struct Nac_UserTableSyncAckMsg {
    uint32_t f0;
    uint32_t f1;
    uint32_t f2;
    uint32_t f3;
    uint32_t f4;
} Nac_UserTableSyncAckMsg;
NAC_MESSAGE_FUNCTIONS(Nac_UserTableSyncAckMsg);
#define Nac_UserTableSyncAckMsg_ID 0xEDB37817u

/* ---- module ipsec_access ------------------------------------------------------------------------ */

/* Asks for an IPsec user's authentication. Record 104 bytes, compact 58 to 99 and the byte strings. */
typedef struct Nac_IpsecAuthenReqMsg {
    uint32_t f0;
    uint32_t f1;
    uint32_t f2;
    uint32_t f3;
    uint32_t f4;
    uint32_t f5_count;
    uint8_t* f5; /* byte strings, no terminator */
    uint32_t f6_count;
    uint8_t* f6;
    uint8_t f7;
    uint32_t f8_count;
    uint8_t* f8;
    uint8_t f9[6]; /* hardware address */
    uint32_t f10;
    uint32_t f11;
    uint32_t f12;
    uint32_t f13;
    uint32_t f14;
    uint32_t f15_count;
    uint8_t* f15;
} Nac_IpsecAuthenReqMsg;
NAC_MESSAGE_FUNCTIONS(Nac_IpsecAuthenReqMsg);
#define Nac_IpsecAuthenReqMsg_ID 0x54DA743Du

/* The answer. Record 104 bytes, compact 46 to 102 and the byte strings. */
typedef struct Nac_IpsecAuthenAckMsg {
    uint32_t f0;
    uint32_t f1;
    uint32_t f2;
    uint32_t f3;
    uint32_t f4;
    uint32_t f5;
    uint32_t f6;
    uint32_t f7;
    uint32_t f8;
    uint32_t f9;
    uint32_t f10;
    uint32_t f11;
    uint32_t f12;
    uint32_t f13;
    uint32_t f14_count;
    uint8_t* f14; /* byte strings, no terminator */
    uint32_t f15_count;
    uint8_t* f15;
    uint32_t f16_count;
    uint8_t* f16;
} Nac_IpsecAuthenAckMsg;
NAC_MESSAGE_FUNCTIONS(Nac_IpsecAuthenAckMsg);
#define Nac_IpsecAuthenAckMsg_ID 0x708A19A2u

/* Takes an IPsec user down. Record 20 bytes, compact 22 to 42, fixed image 48. */
typedef struct Nac_IpsecDownReqMsg {
    uint32_t f0;
    uint32_t f1;
    uint32_t f2;
    uint32_t f3;
    uint32_t f4;
} Nac_IpsecDownReqMsg;
NAC_MESSAGE_FUNCTIONS(Nac_IpsecDownReqMsg);
#define Nac_IpsecDownReqMsg_ID 0xEC72CD18u

/* The answer. Record 20 bytes, compact 22 to 42, fixed image 48. */
typedef struct Nac_IpsecDownAckMsg {
    uint32_t f0;
    uint32_t f1;
    uint32_t f2;
    uint32_t f3;
    uint32_t f4;
} Nac_IpsecDownAckMsg;
NAC_MESSAGE_FUNCTIONS(Nac_IpsecDownAckMsg);
#define Nac_IpsecDownAckMsg_ID 0x2B0B60C3u

/* ---- modules ------------------------------------------------------------------------------------ */

/* Registers the module's message types with the bus, for a process that receives them. Stops at the
 * first refusal and returns the bus's result; types registered before it stay registered. 0 means that
 * all are registered. */
NAC_API int32_t nac_fwm_dataflow_recv_init(void);
NAC_API int32_t nac_fwm_evt_recv_init(void);
NAC_API int32_t nac_fwm_port_recv_init(void);
NAC_API int32_t nac_fwm_uclgroup_recv_init(void);
NAC_API int32_t nac_fwm_user_recv_init(void);
NAC_API int32_t nac_fwm_user_type_recv_init(void);
NAC_API int32_t nac_ipsec_access_recv_init(void);

/* Registers the module's resource clean with the bus, for a process that sends its messages. Returns the
 * bus's result, 0 for success. */
NAC_API int32_t nac_fwm_dataflow_send_init(void);
NAC_API int32_t nac_fwm_evt_send_init(void);
NAC_API int32_t nac_fwm_port_send_init(void);
NAC_API int32_t nac_fwm_uclgroup_send_init(void);
NAC_API int32_t nac_fwm_user_send_init(void);
NAC_API int32_t nac_fwm_user_type_send_init(void);
NAC_API int32_t nac_ipsec_access_send_init(void);

/* The bus's clean-up callback. Does nothing: every send has released its buffers before it returns. */
NAC_API void nac_fwm_dataflow__send_resource_clean(void);
NAC_API void nac_fwm_evt__send_resource_clean(void);
NAC_API void nac_fwm_port__send_resource_clean(void);
NAC_API void nac_fwm_uclgroup__send_resource_clean(void);
NAC_API void nac_fwm_user__send_resource_clean(void);
NAC_API void nac_fwm_user_type__send_resource_clean(void);
NAC_API void nac_ipsec_access__send_resource_clean(void);

/* ---- lists -------------------------------------------------------------------------------------- */

/* Each applies MESSAGE to the module's message types, in the order in which they are registered. The cases of
 * a switch that names an id, with #define NAME(Message) case Message##_ID: return #Message; are
 * NAC_ALL_MESSAGES(NAME). */
#define NAC_DATAFLOW_MESSAGES(MESSAGE) \
    MESSAGE(Nac_UserDataFlowCfg)       \
    MESSAGE(Nac_UserDataFlowInfo)      \
    MESSAGE(Nac_UserDataFlowMsg)       \
    MESSAGE(Nac_UserDataFlowQueryMsg)  \
    MESSAGE(Nac_UserDataFlowQueryAckMsg)
#define NAC_EVT_MESSAGES(MESSAGE) MESSAGE(Nac_PortVlanChangeMsg)
#define NAC_PORT_MESSAGES(MESSAGE) MESSAGE(Nac_SetPortMsg)
#define NAC_UCLGROUP_MESSAGES(MESSAGE)            \
    MESSAGE(Nac_CfgUclGroupIp)                    \
    MESSAGE(Nac_ConfigAccessUserUclGroupIpMsg)    \
    MESSAGE(Nac_ConfigAccessUserUclGroupIpAckMsg) \
    MESSAGE(Nac_UclGroupIpArray)                  \
    MESSAGE(Nac_UclGroupIpAckArray)
#define NAC_USER_MESSAGES(MESSAGE)         \
    MESSAGE(Nac_SetUserTableMsg)           \
    MESSAGE(Nac_SetUserTableAckMsg)        \
    MESSAGE(Nac_UserTableHitMsg)           \
    MESSAGE(Nac_L2NotifyNacUserOfflineMsg) \
    MESSAGE(Nac_TableVersionChangeMsg)     \
    MESSAGE(Nac_UserTableSyncAckMsg)
#define NAC_USER_TYPE_MESSAGES(MESSAGE) \
    MESSAGE(Nac_DaclRuleIpInfo)         \
    MESSAGE(Nac_RadiusDaclRule)         \
    MESSAGE(Nac_UserDetectInfo)
#define NAC_IPSEC_ACCESS_MESSAGES(MESSAGE) \
    MESSAGE(Nac_IpsecAuthenReqMsg)         \
    MESSAGE(Nac_IpsecAuthenAckMsg)         \
    MESSAGE(Nac_IpsecDownReqMsg)           \
    MESSAGE(Nac_IpsecDownAckMsg)

/* All message types of the package. */
#define NAC_ALL_MESSAGES(MESSAGE)   \
    NAC_DATAFLOW_MESSAGES(MESSAGE)  \
    NAC_EVT_MESSAGES(MESSAGE)       \
    NAC_PORT_MESSAGES(MESSAGE)      \
    NAC_UCLGROUP_MESSAGES(MESSAGE)  \
    NAC_USER_MESSAGES(MESSAGE)      \
    NAC_USER_TYPE_MESSAGES(MESSAGE) \
    NAC_IPSEC_ACCESS_MESSAGES(MESSAGE)

/* Applies MODULE to each module: its name, the prefix of its functions, the list of its messages. */
#define NAC_ALL_MODULES(MODULE)                                  \
    MODULE(dataflow, nac_fwm_dataflow, NAC_DATAFLOW_MESSAGES)    \
    MODULE(evt, nac_fwm_evt, NAC_EVT_MESSAGES)                   \
    MODULE(port, nac_fwm_port, NAC_PORT_MESSAGES)                \
    MODULE(uclgroup, nac_fwm_uclgroup, NAC_UCLGROUP_MESSAGES)    \
    MODULE(user, nac_fwm_user, NAC_USER_MESSAGES)                \
    MODULE(user_type, nac_fwm_user_type, NAC_USER_TYPE_MESSAGES) \
    MODULE(ipsec_access, nac_ipsec_access, NAC_IPSEC_ACCESS_MESSAGES)

#ifdef __cplusplus
}
#endif

#undef NAC_API
#undef NAC_MESSAGE_FUNCTIONS

#endif
