# SPDX-License-Identifier: Apache-2.0
"""The record types, fields in field-id order; every default is zero or empty.

Numbers are plain integers, held against their width when they are packed. Byte strings, hardware and
IPv6 addresses are bytes.
"""
# Made by docs/make/python_records.py; not to be edited.
from dataclasses import dataclass, field
from typing import ClassVar

from ._record import Record
from ._shape import Shape
from ._shapes import SHAPES


@dataclass(slots=True)
class Nac_UserDataFlowCfg(Record):
    """Data-flow settings.

    Message 0x67B1E31C of module dataflow. Record 32 bytes, compact 20 to 52, fixed image 56.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_UserDataFlowCfg"]
    f0: int = 0  # u64
    f1: int = 0  # u64
    f2: int = 0  # u64
    f3: int = 0  # u64


@dataclass(slots=True)
class Nac_UserDataFlowInfo(Record):
    """One user's data-flow information.

    Message 0x4DDC107E of module dataflow. Record 136 bytes, compact 104 to 240, fixed image 256.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_UserDataFlowInfo"]
    f0: int = 0  # u32
    f1: int = 0  # u32
    f2: Nac_UserDataFlowCfg = field(default_factory=Nac_UserDataFlowCfg)
    f3: Nac_UserDataFlowCfg = field(default_factory=Nac_UserDataFlowCfg)
    f4: Nac_UserDataFlowCfg = field(default_factory=Nac_UserDataFlowCfg)
    f5: Nac_UserDataFlowCfg = field(default_factory=Nac_UserDataFlowCfg)


@dataclass(slots=True)
class Nac_UserDataFlowMsg(Record):
    """A list of data-flow information.

    Message 0x1824A7EB of module dataflow. Record 16 bytes, compact 14, or 22 and 104 to 240 an element.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_UserDataFlowMsg"]
    f0: list[Nac_UserDataFlowInfo] = field(default_factory=list)


@dataclass(slots=True)
class Nac_UserDataFlowQueryMsg(Record):
    """A data-flow query.

    Message 0x2D4DDDF7 of module dataflow. Record 8 bytes, compact 16 to 24, fixed image 24.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_UserDataFlowQueryMsg"]
    f0: int = 0  # u32
    f1: int = 0  # u32


@dataclass(slots=True)
class Nac_UserDataFlowQueryAckMsg(Record):
    """The answer to a query.

    Message 0x07987F08 of module dataflow. Record 144 bytes, compact 120 to 260, fixed image 280.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_UserDataFlowQueryAckMsg"]
    f0: int = 0  # u32
    f1: Nac_UserDataFlowInfo = field(default_factory=Nac_UserDataFlowInfo)


@dataclass(slots=True)
class Nac_PortVlanChangeMsg(Record):
    """A port's VLAN has changed.

    Message 0xDDDBF760 of module evt. Record 12 bytes, compact 18 to 28, fixed image 32.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_PortVlanChangeMsg"]
    f0: int = 0  # u32
    f1: int = 0  # u32
    f2: int = 0  # u16


@dataclass(slots=True)
class Nac_SetPortMsg(Record):
    """A setting for a port.

    Message 0x09B58155 of module port. Record 8 bytes, compact 16 to 24, fixed image 24.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_SetPortMsg"]
    f0: int = 0  # u32
    f1: int = 0  # u32


@dataclass(slots=True)
class Nac_CfgUclGroupIp(Record):
    """One UCL group address entry.

    Message 0xDCF172EB of module uclgroup. Record 20 bytes, compact 22 to 39, fixed image 48.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_CfgUclGroupIp"]
    f0: int = 0  # u32
    f1: int = 0  # u32
    f2: int = 0  # u32
    f3: int = 0  # u32
    f4: int = 0  # u8


@dataclass(slots=True)
class Nac_ConfigAccessUserUclGroupIpMsg(Record):
    """Configures an access user's UCL group address.

    Message 0xEA1A4E5D of module uclgroup. Record 24 bytes, compact 38 to 56, fixed image 72.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_ConfigAccessUserUclGroupIpMsg"]
    f0: int = 0  # u8
    f1: Nac_CfgUclGroupIp = field(default_factory=Nac_CfgUclGroupIp)


@dataclass(slots=True)
class Nac_ConfigAccessUserUclGroupIpAckMsg(Record):
    """Its acknowledgement.

    Message 0x790D218A of module uclgroup. Record 28 bytes, compact 40 to 62, fixed image 80.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_ConfigAccessUserUclGroupIpAckMsg"]
    f0: int = 0  # u32
    f1: int = 0  # u8
    f2: Nac_CfgUclGroupIp = field(default_factory=Nac_CfgUclGroupIp)


@dataclass(slots=True)
class Nac_UclGroupIpArray(Record):
    """Many configurations at once.

    Message 0xA7B682F4 of module uclgroup. Record 16 bytes, compact 16 to 20, and 8 and 38 to 56 an element.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_UclGroupIpArray"]
    f0: int = 0  # u32
    f1: list[Nac_ConfigAccessUserUclGroupIpMsg] = field(default_factory=list)


@dataclass(slots=True)
class Nac_UclGroupIpAckArray(Record):
    """Many acknowledgements at once.

    Message 0x542827C5 of module uclgroup. Record 16 bytes, compact 16 to 20, and 8 and 40 to 62 an element.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_UclGroupIpAckArray"]
    f0: int = 0  # u32
    f1: list[Nac_ConfigAccessUserUclGroupIpAckMsg] = field(default_factory=list)


@dataclass(slots=True)
class Nac_Ipv6Addr(Record):
    """An IPv6 address as an element of a list.

    Record 16 bytes. Travels only inside other records.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_Ipv6Addr"]
    f0: bytes = bytes(16)  # 16 bytes, IPv6 address


@dataclass(slots=True)
class Nac_SrvCar(Record):
    """Rates of a service.

    Record 20 bytes. Travels only inside other records.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_SrvCar"]
    f0: int = 0  # u8
    f1: int = 0  # u32
    f2: int = 0  # u32
    f3: int = 0  # u32
    f4: int = 0  # u32


@dataclass(slots=True)
class Nac_DaclRuleIpInfo(Record):
    """The addresses of a downloadable ACL rule.

    Message 0xD65D70E6 of module user_type. Record 124 bytes, compact 192 to 239, fixed image 240.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_DaclRuleIpInfo"]
    f0: int = 0  # u32
    f1: int = 0  # u32
    f2: int = 0  # u32
    f3: int = 0  # u32
    f4: bytes = bytes(16)  # 16 bytes, IPv6 address
    f5: bytes = bytes(16)  # 16 bytes, IPv6 address
    f6: bytes = bytes(16)  # 16 bytes, IPv6 address
    f7: bytes = bytes(16)  # 16 bytes, IPv6 address
    f8: int = 0  # u16
    f9: int = 0  # u16
    f10: int = 0  # u16
    f11: int = 0  # u16
    f12: int = 0  # u16
    f13: int = 0  # u16
    f14: int = 0  # u16
    f15: int = 0  # u16
    f16: bytes = bytes(6)  # 6 bytes, hardware address
    f17: bytes = bytes(6)  # 6 bytes, hardware address
    f18: int = 0  # u16
    f19: int = 0  # u16
    f20: int = 0  # u16
    f21: int = 0  # u16
    f22: int = 0  # u8
    f23: int = 0  # u8
    f24: int = 0  # u8
    f25: int = 0  # u8
    f26: int = 0  # u8
    f27: int = 0  # u16


@dataclass(slots=True)
class Nac_RadiusDaclRule(Record):
    """A downloadable ACL rule as a RADIUS server hands it out.

    Message 0x2FEB16AD of module user_type. Record 148 bytes, compact 218 to 286, fixed image 296.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_RadiusDaclRule"]
    f0: int = 0  # u8
    f1: int = 0  # u32
    f2: int = 0  # u32
    f3: int = 0  # u32
    f4: int = 0  # u32
    f5: int = 0  # u32
    f6: Nac_DaclRuleIpInfo = field(default_factory=Nac_DaclRuleIpInfo)


@dataclass(slots=True)
class Nac_UserDetectInfo(Record):
    """User detection settings.

    Message 0x6AE6D195 of module user_type. Record 8 bytes, compact 18 to 24, fixed image 32.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_UserDetectInfo"]
    f0: int = 0  # u8
    f1: int = 0  # u8
    f2: int = 0  # u32


@dataclass(slots=True)
class Nac_SetUserTableMsg(Record):
    """One entry of the access-user table.

    Message 0x47986D1D of module user. Record 328 bytes, compact 238 and more.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_SetUserTableMsg"]
    f0: int = 0  # u32
    f1: int = 0  # u32
    f2: int = 0  # u32
    f3: int = 0  # u32
    f4: int = 0  # u32
    f5: bytes = bytes(6)  # 6 bytes, hardware address
    f6: int = 0  # u32
    f7: int = 0  # u32
    f8: int = 0  # u32
    f9: int = 0  # u32
    f10: int = 0  # u32
    f11: int = 0  # u32
    f12: list[Nac_Ipv6Addr] = field(default_factory=list)
    f13: int = 0  # u32
    f14: int = 0  # u8
    f15: list[int] = field(default_factory=list)  # [u16]
    f16: list[int] = field(default_factory=list)  # [u16]
    f17: int = 0  # u16
    f18: int = 0  # u16
    f19: Nac_SrvCar = field(default_factory=Nac_SrvCar)
    f20: Nac_SrvCar = field(default_factory=Nac_SrvCar)
    f21: int = 0  # u16
    f22: int = 0  # u16
    f23: int = 0  # u16
    f24: int = 0  # u8
    f25: int = 0  # u16
    f26: int = 0  # u8
    f27: int = 0  # u8
    f28: int = 0  # u32
    f29: int = 0  # u8
    f30: int = 0  # u8
    f31: bytes = b""
    f32: list[Nac_RadiusDaclRule] = field(default_factory=list)
    f33: Nac_UserDetectInfo = field(default_factory=Nac_UserDetectInfo)
    f34: int = 0  # u8
    f35: int = 0  # u8
    f36: int = 0  # u8
    f37: int = 0  # u8
    f38: int = 0  # u32
    f39: int = 0  # u32
    f40: int = 0  # u32
    f41: int = 0  # u8
    f42: bytes = b""
    f43: int = 0  # u32
    f44: int = 0  # u8
    f45: int = 0  # u8
    f46: int = 0  # u8
    f47: int = 0  # u64
    f48: int = 0  # u8
    f49: int = 0  # u8
    f50: int = 0  # u8
    f51: bytes = b""
    f52: list[int] = field(default_factory=list)  # [u32]
    f53: list[int] = field(default_factory=lambda: [0] * 16)  # u16[16]
    f54: int = 0  # u8


@dataclass(slots=True)
class Nac_SetUserTableAckMsg(Record):
    """Acknowledges a table entry.

    Message 0x2198074A of module user. Record 36 bytes, compact 30 to 64, fixed image 72.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_SetUserTableAckMsg"]
    f0: int = 0  # u32
    f1: int = 0  # u32
    f2: int = 0  # u32
    f3: int = 0  # u32
    f4: int = 0  # u16
    f5: int = 0  # u32
    f6: int = 0  # u32
    f7: int = 0  # u32
    f8: int = 0  # u32


@dataclass(slots=True)
class Nac_UserTableHitMsg(Record):
    """A table entry was hit.

    Message 0xDC29F120 of module user. Record 24 bytes, compact 24 to 48, fixed image 48.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_UserTableHitMsg"]
    f0: int = 0  # u32
    f1: int = 0  # u32
    f2: int = 0  # u32
    f3: int = 0  # u32
    f4: int = 0  # u32
    f5: int = 0  # u32


@dataclass(slots=True)
class Nac_L2NotifyNacUserOfflineMsg(Record):
    """Layer 2 says that an access user went offline.

    Message 0x03ED5F77 of module user. Record 32 bytes, compact 42 to 68, fixed image 72.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_L2NotifyNacUserOfflineMsg"]
    f0: int = 0  # u32
    f1: int = 0  # u32
    f2: int = 0  # u32
    f3: int = 0  # u16
    f4: bytes = bytes(6)  # 6 bytes, hardware address
    f5: int = 0  # u32
    f6: int = 0  # u32
    f7: int = 0  # u32


@dataclass(slots=True)
class Nac_TableVersionChangeMsg(Record):
    """A table's version has changed.

    Message 0x73821176 of module user. Record 4 bytes, compact 14 to 18, fixed image 24.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_TableVersionChangeMsg"]
    f0: int = 0  # u32


@dataclass(slots=True)
class Nac_UserTableSyncAckMsg(Record):
    """Acknowledges a table synchronisation.

    Message 0xEDB37817 of module user. Record 20 bytes, compact 22 to 42, fixed image 48.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_UserTableSyncAckMsg"]
    f0: int = 0  # u32
    f1: int = 0  # u32
    f2: int = 0  # u32
    f3: int = 0  # u32
    f4: int = 0  # u32


@dataclass(slots=True)
class Nac_IpsecAuthenReqMsg(Record):
    """Asks for an IPsec user's authentication.

    Message 0x54DA743D of module ipsec_access. Record 104 bytes, compact 58 to 99 and the byte strings.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_IpsecAuthenReqMsg"]
    f0: int = 0  # u32
    f1: int = 0  # u32
    f2: int = 0  # u32
    f3: int = 0  # u32
    f4: int = 0  # u32
    f5: bytes = b""
    f6: bytes = b""
    f7: int = 0  # u8
    f8: bytes = b""
    f9: bytes = bytes(6)  # 6 bytes, hardware address
    f10: int = 0  # u32
    f11: int = 0  # u32
    f12: int = 0  # u32
    f13: int = 0  # u32
    f14: int = 0  # u32
    f15: bytes = b""


@dataclass(slots=True)
class Nac_IpsecAuthenAckMsg(Record):
    """The answer.

    Message 0x708A19A2 of module ipsec_access. Record 104 bytes, compact 46 to 102 and the byte strings.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_IpsecAuthenAckMsg"]
    f0: int = 0  # u32
    f1: int = 0  # u32
    f2: int = 0  # u32
    f3: int = 0  # u32
    f4: int = 0  # u32
    f5: int = 0  # u32
    f6: int = 0  # u32
    f7: int = 0  # u32
    f8: int = 0  # u32
    f9: int = 0  # u32
    f10: int = 0  # u32
    f11: int = 0  # u32
    f12: int = 0  # u32
    f13: int = 0  # u32
    f14: bytes = b""
    f15: bytes = b""
    f16: bytes = b""


@dataclass(slots=True)
class Nac_IpsecDownReqMsg(Record):
    """Takes an IPsec user down.

    Message 0xEC72CD18 of module ipsec_access. Record 20 bytes, compact 22 to 42, fixed image 48.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_IpsecDownReqMsg"]
    f0: int = 0  # u32
    f1: int = 0  # u32
    f2: int = 0  # u32
    f3: int = 0  # u32
    f4: int = 0  # u32


@dataclass(slots=True)
class Nac_IpsecDownAckMsg(Record):
    """The answer.

    Message 0x2B0B60C3 of module ipsec_access. Record 20 bytes, compact 22 to 42, fixed image 48.
    """

    shape: ClassVar[Shape] = SHAPES["Nac_IpsecDownAckMsg"]
    f0: int = 0  # u32
    f1: int = 0  # u32
    f2: int = 0  # u32
    f3: int = 0  # u32
    f4: int = 0  # u32


RECORDS: tuple[type[Record], ...] = (
    Nac_UserDataFlowCfg,
    Nac_UserDataFlowInfo,
    Nac_UserDataFlowMsg,
    Nac_UserDataFlowQueryMsg,
    Nac_UserDataFlowQueryAckMsg,
    Nac_PortVlanChangeMsg,
    Nac_SetPortMsg,
    Nac_CfgUclGroupIp,
    Nac_ConfigAccessUserUclGroupIpMsg,
    Nac_ConfigAccessUserUclGroupIpAckMsg,
    Nac_UclGroupIpArray,
    Nac_UclGroupIpAckArray,
    Nac_Ipv6Addr,
    Nac_SrvCar,
    Nac_DaclRuleIpInfo,
    Nac_RadiusDaclRule,
    Nac_UserDetectInfo,
    Nac_SetUserTableMsg,
    Nac_SetUserTableAckMsg,
    Nac_UserTableHitMsg,
    Nac_L2NotifyNacUserOfflineMsg,
    Nac_TableVersionChangeMsg,
    Nac_UserTableSyncAckMsg,
    Nac_IpsecAuthenReqMsg,
    Nac_IpsecAuthenAckMsg,
    Nac_IpsecDownReqMsg,
    Nac_IpsecDownAckMsg,
)

__all__ = [
    "Nac_UserDataFlowCfg",
    "Nac_UserDataFlowInfo",
    "Nac_UserDataFlowMsg",
    "Nac_UserDataFlowQueryMsg",
    "Nac_UserDataFlowQueryAckMsg",
    "Nac_PortVlanChangeMsg",
    "Nac_SetPortMsg",
    "Nac_CfgUclGroupIp",
    "Nac_ConfigAccessUserUclGroupIpMsg",
    "Nac_ConfigAccessUserUclGroupIpAckMsg",
    "Nac_UclGroupIpArray",
    "Nac_UclGroupIpAckArray",
    "Nac_Ipv6Addr",
    "Nac_SrvCar",
    "Nac_DaclRuleIpInfo",
    "Nac_RadiusDaclRule",
    "Nac_UserDetectInfo",
    "Nac_SetUserTableMsg",
    "Nac_SetUserTableAckMsg",
    "Nac_UserTableHitMsg",
    "Nac_L2NotifyNacUserOfflineMsg",
    "Nac_TableVersionChangeMsg",
    "Nac_UserTableSyncAckMsg",
    "Nac_IpsecAuthenReqMsg",
    "Nac_IpsecAuthenAckMsg",
    "Nac_IpsecDownReqMsg",
    "Nac_IpsecDownAckMsg",
]
