# SPDX-License-Identifier: Apache-2.0
# The shape of each record type.
# Made by docs/make/python_records.py; not to be edited.
from ._shape import Field, Shape

SHAPES: dict[str, Shape] = {
    "Nac_UserDataFlowCfg": Shape(
        "Nac_UserDataFlowCfg", "dataflow", 0x67B1E31C, 32, 12, 56, 36, 40, (
            Field("f0", "u64", "scalar", "number", 8, 1, None, 0, None, 4, 8, 8),
            Field("f1", "u64", "scalar", "number", 8, 1, None, 8, None, 6, 16, 8),
            Field("f2", "u64", "scalar", "number", 8, 1, None, 16, None, 8, 24, 8),
            Field("f3", "u64", "scalar", "number", 8, 1, None, 24, None, 10, 32, 8),
        )),
    "Nac_UserDataFlowInfo": Shape(
        "Nac_UserDataFlowInfo", "dataflow", 0x4DDC107E, 136, 16, 256, 236, 240, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, 8, 4),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, 12, 4),
            Field("f2", "Nac_UserDataFlowCfg", "nested table", "table", 4, 1, "Nac_UserDataFlowCfg", 8, None, 8, 16, 56),
            Field("f3", "Nac_UserDataFlowCfg", "nested table", "table", 4, 1, "Nac_UserDataFlowCfg", 40, None, 10, 72, 56),
            Field("f4", "Nac_UserDataFlowCfg", "nested table", "table", 4, 1, "Nac_UserDataFlowCfg", 72, None, 12, 128, 56),
            Field("f5", "Nac_UserDataFlowCfg", "nested table", "table", 4, 1, "Nac_UserDataFlowCfg", 104, None, 14, 184, 56),
        )),
    "Nac_UserDataFlowMsg": Shape(
        "Nac_UserDataFlowMsg", "dataflow", 0x1824A7EB, 16, 6, None, None, None, (
            Field("f0", "[Nac_UserDataFlowInfo]", "table vector", "tables", 4, 0, "Nac_UserDataFlowInfo", 8, 0, 4, None, None),
        )),
    "Nac_UserDataFlowQueryMsg": Shape(
        "Nac_UserDataFlowQueryMsg", "dataflow", 0x2D4DDDF7, 8, 8, 24, 12, 16, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, 8, 4),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, 12, 4),
        )),
    "Nac_UserDataFlowQueryAckMsg": Shape(
        "Nac_UserDataFlowQueryAckMsg", "dataflow", 0x07987F08, 144, 8, 280, 264, 268, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, 8, 4),
            Field("f1", "Nac_UserDataFlowInfo", "nested table", "table", 4, 1, "Nac_UserDataFlowInfo", 8, None, 6, 12, 256),
        )),
    "Nac_PortVlanChangeMsg": Shape(
        "Nac_PortVlanChangeMsg", "evt", 0xDDDBF760, 12, 10, 32, 14, 20, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, 8, 4),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, 12, 4),
            Field("f2", "u16", "scalar", "number", 2, 1, None, 8, None, 8, 16, 2),
        )),
    "Nac_SetPortMsg": Shape(
        "Nac_SetPortMsg", "port", 0x09B58155, 8, 8, 24, 12, 16, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, 8, 4),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, 12, 4),
        )),
    "Nac_CfgUclGroupIp": Shape(
        "Nac_CfgUclGroupIp", "uclgroup", 0xDCF172EB, 20, 14, 48, 21, 28, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, 8, 4),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, 12, 4),
            Field("f2", "u32", "scalar", "number", 4, 1, None, 8, None, 8, 16, 4),
            Field("f3", "u32", "scalar", "number", 4, 1, None, 12, None, 10, 20, 4),
            Field("f4", "u8", "scalar", "number", 1, 1, None, 16, None, 12, 24, 1),
        )),
    "Nac_ConfigAccessUserUclGroupIpMsg": Shape(
        "Nac_ConfigAccessUserUclGroupIpMsg", "uclgroup", 0xEA1A4E5D, 24, 8, 72, 53, 60, (
            Field("f0", "u8", "scalar", "number", 1, 1, None, 0, None, 4, 8, 1),
            Field("f1", "Nac_CfgUclGroupIp", "nested table", "table", 4, 1, "Nac_CfgUclGroupIp", 4, None, 6, 9, 48),
        )),
    "Nac_ConfigAccessUserUclGroupIpAckMsg": Shape(
        "Nac_ConfigAccessUserUclGroupIpAckMsg", "uclgroup", 0x790D218A, 28, 10, 80, 57, 64, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, 8, 4),
            Field("f1", "u8", "scalar", "number", 1, 1, None, 4, None, 6, 12, 1),
            Field("f2", "Nac_CfgUclGroupIp", "nested table", "table", 4, 1, "Nac_CfgUclGroupIp", 8, None, 8, 13, 48),
        )),
    "Nac_UclGroupIpArray": Shape(
        "Nac_UclGroupIpArray", "uclgroup", 0xA7B682F4, 16, 8, None, None, None, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, None, None),
            Field("f1", "[Nac_ConfigAccessUserUclGroupIpMsg]", "table vector", "tables", 4, 0, "Nac_ConfigAccessUserUclGroupIpMsg", 8, 4, 6, None, None),
        )),
    "Nac_UclGroupIpAckArray": Shape(
        "Nac_UclGroupIpAckArray", "uclgroup", 0x542827C5, 16, 8, None, None, None, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, None, None),
            Field("f1", "[Nac_ConfigAccessUserUclGroupIpAckMsg]", "table vector", "tables", 4, 0, "Nac_ConfigAccessUserUclGroupIpAckMsg", 8, 4, 6, None, None),
        )),
    "Nac_Ipv6Addr": Shape(
        "Nac_Ipv6Addr", None, None, 16, 6, 40, 28, 32, (
            Field("f0", "u8[16]", "fixed array", "IPv6 address", 1, 16, None, 0, None, 4, 8, 24),
        )),
    "Nac_SrvCar": Shape(
        "Nac_SrvCar", None, None, 20, 14, 48, 21, 28, (
            Field("f0", "u8", "scalar", "number", 1, 1, None, 0, None, 4, 8, 1),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, 9, 4),
            Field("f2", "u32", "scalar", "number", 4, 1, None, 8, None, 8, 13, 4),
            Field("f3", "u32", "scalar", "number", 4, 1, None, 12, None, 10, 17, 4),
            Field("f4", "u32", "scalar", "number", 4, 1, None, 16, None, 12, 21, 4),
        )),
    "Nac_DaclRuleIpInfo": Shape(
        "Nac_DaclRuleIpInfo", "user_type", 0xD65D70E6, 124, 60, 240, 175, 180, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, 8, 4),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, 12, 4),
            Field("f2", "u32", "scalar", "number", 4, 1, None, 8, None, 8, 16, 4),
            Field("f3", "u32", "scalar", "number", 4, 1, None, 12, None, 10, 20, 4),
            Field("f4", "u8[16]", "fixed array", "IPv6 address", 1, 16, None, 16, None, 12, 24, 24),
            Field("f5", "u8[16]", "fixed array", "IPv6 address", 1, 16, None, 32, None, 14, 48, 24),
            Field("f6", "u8[16]", "fixed array", "IPv6 address", 1, 16, None, 48, None, 16, 72, 24),
            Field("f7", "u8[16]", "fixed array", "IPv6 address", 1, 16, None, 64, None, 18, 96, 24),
            Field("f8", "u16", "scalar", "number", 2, 1, None, 80, None, 20, 120, 2),
            Field("f9", "u16", "scalar", "number", 2, 1, None, 82, None, 22, 122, 2),
            Field("f10", "u16", "scalar", "number", 2, 1, None, 84, None, 24, 124, 2),
            Field("f11", "u16", "scalar", "number", 2, 1, None, 86, None, 26, 126, 2),
            Field("f12", "u16", "scalar", "number", 2, 1, None, 88, None, 28, 128, 2),
            Field("f13", "u16", "scalar", "number", 2, 1, None, 90, None, 30, 130, 2),
            Field("f14", "u16", "scalar", "number", 2, 1, None, 92, None, 32, 132, 2),
            Field("f15", "u16", "scalar", "number", 2, 1, None, 94, None, 34, 134, 2),
            Field("f16", "u8[6]", "fixed array", "hardware address", 1, 6, None, 96, None, 36, 136, 14),
            Field("f17", "u8[6]", "fixed array", "hardware address", 1, 6, None, 102, None, 38, 150, 14),
            Field("f18", "u16", "scalar", "number", 2, 1, None, 108, None, 40, 164, 2),
            Field("f19", "u16", "scalar", "number", 2, 1, None, 110, None, 42, 166, 2),
            Field("f20", "u16", "scalar", "number", 2, 1, None, 112, None, 44, 168, 2),
            Field("f21", "u16", "scalar", "number", 2, 1, None, 114, None, 46, 170, 2),
            Field("f22", "u8", "scalar", "number", 1, 1, None, 116, None, 48, 172, 1),
            Field("f23", "u8", "scalar", "number", 1, 1, None, 117, None, 50, 173, 1),
            Field("f24", "u8", "scalar", "number", 1, 1, None, 118, None, 52, 174, 1),
            Field("f25", "u8", "scalar", "number", 1, 1, None, 119, None, 54, 175, 1),
            Field("f26", "u8", "scalar", "number", 1, 1, None, 120, None, 56, 176, 1),
            Field("f27", "u16", "scalar", "number", 2, 1, None, 122, None, 58, 177, 2),
        )),
    "Nac_RadiusDaclRule": Shape(
        "Nac_RadiusDaclRule", "user_type", 0x2FEB16AD, 148, 18, 296, 265, 272, (
            Field("f0", "u8", "scalar", "number", 1, 1, None, 0, None, 4, 8, 1),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, 9, 4),
            Field("f2", "u32", "scalar", "number", 4, 1, None, 8, None, 8, 13, 4),
            Field("f3", "u32", "scalar", "number", 4, 1, None, 12, None, 10, 17, 4),
            Field("f4", "u32", "scalar", "number", 4, 1, None, 16, None, 12, 21, 4),
            Field("f5", "u32", "scalar", "number", 4, 1, None, 20, None, 14, 25, 4),
            Field("f6", "Nac_DaclRuleIpInfo", "nested table", "table", 4, 1, "Nac_DaclRuleIpInfo", 24, None, 16, 29, 240),
        )),
    "Nac_UserDetectInfo": Shape(
        "Nac_UserDetectInfo", "user_type", 0x6AE6D195, 8, 10, 32, 10, 16, (
            Field("f0", "u8", "scalar", "number", 1, 1, None, 0, None, 4, 8, 1),
            Field("f1", "u8", "scalar", "number", 1, 1, None, 1, None, 6, 9, 1),
            Field("f2", "u32", "scalar", "number", 4, 1, None, 4, None, 8, 10, 4),
        )),
    "Nac_SetUserTableMsg": Shape(
        "Nac_SetUserTableMsg", "user", 0x47986D1D, 328, 114, None, None, None, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, None, None),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, None, None),
            Field("f2", "u32", "scalar", "number", 4, 1, None, 8, None, 8, None, None),
            Field("f3", "u32", "scalar", "number", 4, 1, None, 12, None, 10, None, None),
            Field("f4", "u32", "scalar", "number", 4, 1, None, 16, None, 12, None, None),
            Field("f5", "u8[6]", "fixed array", "hardware address", 1, 6, None, 20, None, 14, None, None),
            Field("f6", "u32", "scalar", "number", 4, 1, None, 28, None, 16, None, None),
            Field("f7", "u32", "scalar", "number", 4, 1, None, 32, None, 18, None, None),
            Field("f8", "u32", "scalar", "number", 4, 1, None, 36, None, 20, None, None),
            Field("f9", "u32", "scalar", "number", 4, 1, None, 40, None, 22, None, None),
            Field("f10", "u32", "scalar", "number", 4, 1, None, 44, None, 24, None, None),
            Field("f11", "u32", "scalar", "number", 4, 1, None, 48, None, 26, None, None),
            Field("f12", "[Nac_Ipv6Addr]", "table vector", "tables", 4, 0, "Nac_Ipv6Addr", 56, 52, 28, None, None),
            Field("f13", "u32", "scalar", "number", 4, 1, None, 64, None, 30, None, None),
            Field("f14", "u8", "scalar", "number", 1, 1, None, 68, None, 32, None, None),
            Field("f15", "[u16]", "scalar vector", "numbers", 2, 0, None, 80, 72, 34, None, None),
            Field("f16", "[u16]", "scalar vector", "numbers", 2, 0, None, 96, 88, 36, None, None),
            Field("f17", "u16", "scalar", "number", 2, 1, None, 104, None, 38, None, None),
            Field("f18", "u16", "scalar", "number", 2, 1, None, 106, None, 40, None, None),
            Field("f19", "Nac_SrvCar", "nested table", "table", 4, 1, "Nac_SrvCar", 108, None, 42, None, None),
            Field("f20", "Nac_SrvCar", "nested table", "table", 4, 1, "Nac_SrvCar", 128, None, 44, None, None),
            Field("f21", "u16", "scalar", "number", 2, 1, None, 148, None, 46, None, None),
            Field("f22", "u16", "scalar", "number", 2, 1, None, 150, None, 48, None, None),
            Field("f23", "u16", "scalar", "number", 2, 1, None, 152, None, 50, None, None),
            Field("f24", "u8", "scalar", "number", 1, 1, None, 154, None, 52, None, None),
            Field("f25", "u16", "scalar", "number", 2, 1, None, 156, None, 54, None, None),
            Field("f26", "u8", "scalar", "number", 1, 1, None, 158, None, 56, None, None),
            Field("f27", "u8", "scalar", "number", 1, 1, None, 159, None, 58, None, None),
            Field("f28", "u32", "scalar", "number", 4, 1, None, 160, None, 60, None, None),
            Field("f29", "u8", "scalar", "number", 1, 1, None, 164, None, 62, None, None),
            Field("f30", "u8", "scalar", "number", 1, 1, None, 165, None, 64, None, None),
            Field("f31", "[u8]", "scalar vector", "hexadecimal", 1, 0, None, 176, 168, 66, None, None),
            Field("f32", "[Nac_RadiusDaclRule]", "table vector", "tables", 4, 0, "Nac_RadiusDaclRule", 192, 184, 68, None, None),
            Field("f33", "Nac_UserDetectInfo", "nested table", "table", 4, 1, "Nac_UserDetectInfo", 200, None, 70, None, None),
            Field("f34", "u8", "scalar", "number", 1, 1, None, 208, None, 72, None, None),
            Field("f35", "u8", "scalar", "number", 1, 1, None, 209, None, 74, None, None),
            Field("f36", "u8", "scalar", "number", 1, 1, None, 210, None, 76, None, None),
            Field("f37", "u8", "scalar", "number", 1, 1, None, 211, None, 78, None, None),
            Field("f38", "u32", "scalar", "number", 4, 1, None, 212, None, 80, None, None),
            Field("f39", "u32", "scalar", "number", 4, 1, None, 216, None, 82, None, None),
            Field("f40", "u32", "scalar", "number", 4, 1, None, 220, None, 84, None, None),
            Field("f41", "u8", "scalar", "number", 1, 1, None, 224, None, 86, None, None),
            Field("f42", "[u8]", "scalar vector", "hexadecimal", 1, 0, None, 232, 228, 88, None, None),
            Field("f43", "u32", "scalar", "number", 4, 1, None, 240, None, 90, None, None),
            Field("f44", "u8", "scalar", "number", 1, 1, None, 244, None, 92, None, None),
            Field("f45", "u8", "scalar", "number", 1, 1, None, 245, None, 94, None, None),
            Field("f46", "u8", "scalar", "number", 1, 1, None, 246, None, 96, None, None),
            Field("f47", "u64", "scalar", "number", 8, 1, None, 248, None, 98, None, None),
            Field("f48", "u8", "scalar", "number", 1, 1, None, 256, None, 100, None, None),
            Field("f49", "u8", "scalar", "number", 1, 1, None, 257, None, 102, None, None),
            Field("f50", "u8", "scalar", "number", 1, 1, None, 258, None, 104, None, None),
            Field("f51", "[u8]", "scalar vector", "hexadecimal", 1, 0, None, 264, 260, 106, None, None),
            Field("f52", "[u32]", "scalar vector", "numbers", 4, 0, None, 280, 272, 108, None, None),
            Field("f53", "u16[16]", "fixed array", "numbers", 2, 16, None, 288, None, 110, None, None),
            Field("f54", "u8", "scalar", "number", 1, 1, None, 320, None, 112, None, None),
        )),
    "Nac_SetUserTableAckMsg": Shape(
        "Nac_SetUserTableAckMsg", "user", 0x2198074A, 36, 22, 72, 38, 44, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, 8, 4),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, 12, 4),
            Field("f2", "u32", "scalar", "number", 4, 1, None, 8, None, 8, 16, 4),
            Field("f3", "u32", "scalar", "number", 4, 1, None, 12, None, 10, 20, 4),
            Field("f4", "u16", "scalar", "number", 2, 1, None, 16, None, 12, 24, 2),
            Field("f5", "u32", "scalar", "number", 4, 1, None, 20, None, 14, 26, 4),
            Field("f6", "u32", "scalar", "number", 4, 1, None, 24, None, 16, 30, 4),
            Field("f7", "u32", "scalar", "number", 4, 1, None, 28, None, 18, 34, 4),
            Field("f8", "u32", "scalar", "number", 4, 1, None, 32, None, 20, 38, 4),
        )),
    "Nac_UserTableHitMsg": Shape(
        "Nac_UserTableHitMsg", "user", 0xDC29F120, 24, 16, 48, 28, 32, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, 8, 4),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, 12, 4),
            Field("f2", "u32", "scalar", "number", 4, 1, None, 8, None, 8, 16, 4),
            Field("f3", "u32", "scalar", "number", 4, 1, None, 12, None, 10, 20, 4),
            Field("f4", "u32", "scalar", "number", 4, 1, None, 16, None, 12, 24, 4),
            Field("f5", "u32", "scalar", "number", 4, 1, None, 20, None, 14, 28, 4),
        )),
    "Nac_L2NotifyNacUserOfflineMsg": Shape(
        "Nac_L2NotifyNacUserOfflineMsg", "user", 0x03ED5F77, 32, 20, 72, 44, 48, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, 8, 4),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, 12, 4),
            Field("f2", "u32", "scalar", "number", 4, 1, None, 8, None, 8, 16, 4),
            Field("f3", "u16", "scalar", "number", 2, 1, None, 12, None, 10, 20, 2),
            Field("f4", "u8[6]", "fixed array", "hardware address", 1, 6, None, 14, None, 12, 22, 14),
            Field("f5", "u32", "scalar", "number", 4, 1, None, 20, None, 14, 36, 4),
            Field("f6", "u32", "scalar", "number", 4, 1, None, 24, None, 16, 40, 4),
            Field("f7", "u32", "scalar", "number", 4, 1, None, 28, None, 18, 44, 4),
        )),
    "Nac_TableVersionChangeMsg": Shape(
        "Nac_TableVersionChangeMsg", "user", 0x73821176, 4, 6, 24, 8, 12, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, 8, 4),
        )),
    "Nac_UserTableSyncAckMsg": Shape(
        "Nac_UserTableSyncAckMsg", "user", 0xEDB37817, 20, 14, 48, 24, 28, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, 8, 4),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, 12, 4),
            Field("f2", "u32", "scalar", "number", 4, 1, None, 8, None, 8, 16, 4),
            Field("f3", "u32", "scalar", "number", 4, 1, None, 12, None, 10, 20, 4),
            Field("f4", "u32", "scalar", "number", 4, 1, None, 16, None, 12, 24, 4),
        )),
    "Nac_IpsecAuthenReqMsg": Shape(
        "Nac_IpsecAuthenReqMsg", "ipsec_access", 0x54DA743D, 104, 36, None, None, None, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, None, None),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, None, None),
            Field("f2", "u32", "scalar", "number", 4, 1, None, 8, None, 8, None, None),
            Field("f3", "u32", "scalar", "number", 4, 1, None, 12, None, 10, None, None),
            Field("f4", "u32", "scalar", "number", 4, 1, None, 16, None, 12, None, None),
            Field("f5", "[u8]", "scalar vector", "hexadecimal", 1, 0, None, 24, 20, 14, None, None),
            Field("f6", "[u8]", "scalar vector", "hexadecimal", 1, 0, None, 40, 32, 16, None, None),
            Field("f7", "u8", "scalar", "number", 1, 1, None, 48, None, 18, None, None),
            Field("f8", "[u8]", "scalar vector", "hexadecimal", 1, 0, None, 56, 52, 20, None, None),
            Field("f9", "u8[6]", "fixed array", "hardware address", 1, 6, None, 64, None, 22, None, None),
            Field("f10", "u32", "scalar", "number", 4, 1, None, 72, None, 24, None, None),
            Field("f11", "u32", "scalar", "number", 4, 1, None, 76, None, 26, None, None),
            Field("f12", "u32", "scalar", "number", 4, 1, None, 80, None, 28, None, None),
            Field("f13", "u32", "scalar", "number", 4, 1, None, 84, None, 30, None, None),
            Field("f14", "u32", "scalar", "number", 4, 1, None, 88, None, 32, None, None),
            Field("f15", "[u8]", "scalar vector", "hexadecimal", 1, 0, None, 96, 92, 34, None, None),
        )),
    "Nac_IpsecAuthenAckMsg": Shape(
        "Nac_IpsecAuthenAckMsg", "ipsec_access", 0x708A19A2, 104, 38, None, None, None, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, None, None),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, None, None),
            Field("f2", "u32", "scalar", "number", 4, 1, None, 8, None, 8, None, None),
            Field("f3", "u32", "scalar", "number", 4, 1, None, 12, None, 10, None, None),
            Field("f4", "u32", "scalar", "number", 4, 1, None, 16, None, 12, None, None),
            Field("f5", "u32", "scalar", "number", 4, 1, None, 20, None, 14, None, None),
            Field("f6", "u32", "scalar", "number", 4, 1, None, 24, None, 16, None, None),
            Field("f7", "u32", "scalar", "number", 4, 1, None, 28, None, 18, None, None),
            Field("f8", "u32", "scalar", "number", 4, 1, None, 32, None, 20, None, None),
            Field("f9", "u32", "scalar", "number", 4, 1, None, 36, None, 22, None, None),
            Field("f10", "u32", "scalar", "number", 4, 1, None, 40, None, 24, None, None),
            Field("f11", "u32", "scalar", "number", 4, 1, None, 44, None, 26, None, None),
            Field("f12", "u32", "scalar", "number", 4, 1, None, 48, None, 28, None, None),
            Field("f13", "u32", "scalar", "number", 4, 1, None, 52, None, 30, None, None),
            Field("f14", "[u8]", "scalar vector", "hexadecimal", 1, 0, None, 64, 56, 32, None, None),
            Field("f15", "[u8]", "scalar vector", "hexadecimal", 1, 0, None, 80, 72, 34, None, None),
            Field("f16", "[u8]", "scalar vector", "hexadecimal", 1, 0, None, 96, 88, 36, None, None),
        )),
    "Nac_IpsecDownReqMsg": Shape(
        "Nac_IpsecDownReqMsg", "ipsec_access", 0xEC72CD18, 20, 14, 48, 24, 28, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, 8, 4),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, 12, 4),
            Field("f2", "u32", "scalar", "number", 4, 1, None, 8, None, 8, 16, 4),
            Field("f3", "u32", "scalar", "number", 4, 1, None, 12, None, 10, 20, 4),
            Field("f4", "u32", "scalar", "number", 4, 1, None, 16, None, 12, 24, 4),
        )),
    "Nac_IpsecDownAckMsg": Shape(
        "Nac_IpsecDownAckMsg", "ipsec_access", 0x2B0B60C3, 20, 14, 48, 24, 28, (
            Field("f0", "u32", "scalar", "number", 4, 1, None, 0, None, 4, 8, 4),
            Field("f1", "u32", "scalar", "number", 4, 1, None, 4, None, 6, 12, 4),
            Field("f2", "u32", "scalar", "number", 4, 1, None, 8, None, 8, 16, 4),
            Field("f3", "u32", "scalar", "number", 4, 1, None, 12, None, 10, 20, 4),
            Field("f4", "u32", "scalar", "number", 4, 1, None, 16, None, 12, 24, 4),
        )),
}
