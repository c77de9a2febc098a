-- SPDX-License-Identifier: Apache-2.0
-- Messages of the VORN bus for Wireshark, made by "nac dissector" (@VERSION@) from the descriptions of the messages.
--
-- Put it into Wireshark's folder of personal plugins, or name it: tshark -X lua_script:nac.lua -r capture.pcapng
-- Captures are those of "nac record". Other protocols that carry these messages find their dissectors in the table
-- "nac.id", by message id. Scripts of several packages may be loaded: the first has the bus, and each adds its messages.

local HEADER_BYTES = 40
local WRAP = 4294967296
local MOST_ITEMS = 50000
local MOST_TEXT = 200

local PACKAGE = "@PACKAGE@"
local PREFIX = string.lower(PACKAGE)

local package = Proto(PREFIX, PACKAGE .. " message")
local _, id_table = pcall(DissectorTable.get, "nac.id")
local is_later = type(id_table) == "userdata"
if not is_later then
    id_table = DissectorTable.new("nac.id", "Message id", ftypes.UINT32, base.HEX, package)
end

-- ---- types ----------------------------------------------------------------------------------------------

local m = {
    root = ProtoField.uint32(PREFIX .. ".root", "Root table", base.DEC, nil, nil, "Where the root table is"),
    soffset = ProtoField.uint32(PREFIX .. ".vtable_distance", "Distance to the vtable", base.DEC),
    vtable_length = ProtoField.uint16(PREFIX .. ".vtable_length", "Vtable length", base.DEC),
    table_length = ProtoField.uint16(PREFIX .. ".table_length", "Table length", base.DEC),
    slot = ProtoField.uint16(PREFIX .. ".slot", "Slot", base.DEC),
    reference = ProtoField.uint32(PREFIX .. ".reference", "Reference", base.DEC),
    elements = ProtoField.uint32(PREFIX .. ".elements", "Elements", base.DEC),
}
local fields = {m.root, m.soffset, m.vtable_length, m.table_length, m.slot, m.reference, m.elements}
local damaged = ProtoExpert.new(PREFIX .. ".damaged", "Damaged", expert.group.MALFORMED, expert.severity.ERROR)
local cut = ProtoExpert.new(PREFIX .. ".cut", "Cut when it was recorded", expert.group.UNDECODED, expert.severity.WARN)
local many = ProtoExpert.new(PREFIX .. ".many", "More than is shown", expert.group.UNDECODED, expert.severity.NOTE)
package.experts = {damaged, cut, many}
package.prefs.text = Pref.bool("Byte strings as text", true, "Show byte strings as text too, where all of it is printable")

local types = {}
local messages = {}

-- Field: {name, kind, display, bytes of an element, elements of a fixed array, table}
local function define(name, nested_decoder, root_decoder, id, list)
    local type = {name = name, nested_decoder = nested_decoder, root_decoder = root_decoder, id = id, fields = {}}
    for number, entry in ipairs(list) do
        local field = {name = entry[1], kind = entry[2], display = entry[3], bytes = entry[4], count = entry[5], of = entry[6],
                       number = number - 1}
        local filter = PREFIX .. "." .. name .. "." .. field.name
        local make = ({ether = ProtoField.ether, ipv6 = ProtoField.ipv6, bytes = ProtoField.bytes})[field.display]
        if make then
            field.item = make(filter, field.name)
        elseif field.display == "number" then
            make = ({ProtoField.uint8, ProtoField.uint16, nil, ProtoField.uint32, nil, nil, nil, ProtoField.uint64})[field.bytes]
            field.item = make(filter, field.name, base.DEC)
        else
            field.item = ProtoField.none(filter, field.name)
        end
        fields[#fields + 1] = field.item
        type.fields[number] = field
    end
    types[name] = type
    if id then messages[#messages + 1] = type end
end

@TYPES@
-- ---- reading: every number is checked against the remaining bytes before use ----------------------

-- What is known of the message that is read: its bytes and their number, and how much has been shown.
local reader = {}

local function holds(at, bytes) return at <= reader.size and bytes <= reader.size - at end
local function holds_table(at) return at >= 4 and at <= reader.size - 4 end
local function u16(at) return reader.bytes(at, 2):le_uint() end
local function u32(at) return reader.bytes(at, 4):le_uint() end

-- Ends reading: the tree's item shows what is wrong.
local function fail(tree, text)
    if not reader.failed then
        reader.failed = true
        tree:add_proto_expert_info(reader.is_cut and cut or damaged, text)
    end
    return false
end

local function may_show(tree)
    reader.items = reader.items + 1
    if reader.items < MOST_ITEMS then return true end
    if reader.items == MOST_ITEMS then tree:add_proto_expert_info(many, "more fields than are shown") end
    return false
end

-- Where the reference at a position leads; nil: nowhere.
local function follow(at)
    if not holds(at, 4) then return nil end
    local target = at + u32(at)
    if target >= WRAP then return nil end
    return target
end

-- The offset and number of the elements to which the reference at a position leads.
local function follow_vector(at, bytes)
    local vector = follow(at)
    if not vector or not holds(vector, 4) then return nil end
    local count = u32(vector)
    if count > math.floor((reader.size - vector - 4) / bytes) then return nil end
    return vector + 4, count
end

local read_table

local function show_elements(tree, field, at, count)
    if field.display ~= "numbers" then
        local item = tree:add(field.item, reader.bytes(at, count * field.bytes))
        local text = field.display == "bytes" and package.prefs.text and reader.bytes(at, math.min(count, MOST_TEXT)):raw()
        if text and text:find("^[\32-\126]+$") then
            item:append_text(' "' .. text .. (count > MOST_TEXT and '..."' or '"'))
        end
        return
    end
    local list = tree:add(field.item, reader.bytes(at - 4, 4 + count * field.bytes))
    list:set_text(field.name .. ": " .. count .. " numbers")
    list:add_le(m.elements, reader.bytes(at - 4, 4))
    for k = 0, count - 1 do
        if not may_show(list) then return end
        list:add_le(field.element, reader.bytes(at + k * field.bytes, field.bytes))
    end
end

local read = {}

function read.scalar(tree, field, at)
    if not holds(at, field.bytes) then return fail(tree, field.name .. " is outside of the message") end
    if may_show(tree) then tree:add_le(field.item, reader.bytes(at, field.bytes)) end
    return true
end

function read.table(tree, field, at)
    local target = follow(at)
    if not target then return fail(tree, field.name .. ": its reference is outside of the message, or too large") end
    local item = tree
    if may_show(tree) then item = tree:add(field.item, reader.bytes(at, 4)):set_text(field.name .. ": " .. field.of.name) end
    return read_table(item, field.of, target, field.of.nested_decoder)
end

function read.fixed_array(tree, field, at)
    local elements, count = follow_vector(at, field.bytes)
    if not elements then return fail(tree, field.name .. ": its array is not inside the message") end
    if count ~= field.count then
        return fail(tree, field.name .. ": has " .. count .. " elements, not " .. field.count)
    end
    if may_show(tree) then show_elements(tree, field, elements, count) end
    return true
end

function read.vector(tree, field, at)
    local elements, count = follow_vector(at, field.bytes)
    if not elements then return fail(tree, field.name .. ": its elements are not inside the message") end
    if may_show(tree) then show_elements(tree, field, elements, count) end
    return true
end

function read.tables(tree, field, at)
    local elements, count = follow_vector(at, 4)
    if not elements then return fail(tree, field.name .. ": its elements are not inside the message") end
    local list = tree
    if may_show(tree) then
        list = tree:add(field.item, reader.bytes(elements - 4, 4 + 4 * count))
        list:set_text(field.name .. ": " .. count .. " tables")
        list:add_le(m.elements, reader.bytes(elements - 4, 4))
    end
    for k = 0, count - 1 do
        local at_k = elements + 4 * k
        local target = follow(at_k)
        if not target then return fail(list, field.name .. "[" .. k .. "]: its reference is too large") end
        -- What is not shown is not read: one table may be the element of many.
        if not may_show(list) then return true end
        local item = list:add(m.reference, reader.bytes(at_k, 4), u32(at_k)):set_text("[" .. k .. "]: " .. field.of.name)
        if not read_table(item, field.of, target, field.of.nested_decoder) then return false end
    end
    return true
end

-- The library's words for faults of a table's head, as they stand in its log.
local function log_text(decoder, text, ...) return decoder .. ": [KAPLO]:" .. string.format(text, ...) end

function read_table(tree, type, at, decoder)
    if not holds_table(at) then
        return fail(tree, log_text(decoder, "Table offset(%.0f) is out of range(4 - %.0f)", at, reader.size))
    end
    local vtable = (at - u32(at)) % WRAP
    if not holds_table(vtable) then
        return fail(tree, log_text(decoder, "Vtable offset(%.0f) is out of range(4 - %.0f)", at, reader.size - 4))
    end
    local length = u16(vtable)
    if length > reader.size - vtable then
        return fail(tree, log_text(decoder, "Vtable Len(%.0f) is out of range(0 - %.0f)", length, reader.size - vtable))
    end

    if may_show(tree) then
        local head = tree:add(package, reader.bytes(at, 4), "Table at " .. at .. ", vtable at " .. vtable)
        head:set_generated(false)
        head:add_le(m.soffset, reader.bytes(at, 4))
        head:add_le(m.vtable_length, reader.bytes(vtable, 2))
        head:add_le(m.table_length, reader.bytes(vtable + 2, 2))
        for slot = 0, math.floor((length - 4) / 2) - 1 do
            if not may_show(head) then break end
            local field = type.fields[slot + 1]
            local entry = head:add_le(m.slot, reader.bytes(vtable + 4 + 2 * slot, 2))
            entry:set_text("Slot of " .. (field and field.name or "an unknown field") .. ": " .. u16(vtable + 4 + 2 * slot))
        end
    end

    local absent = {}
    for _, field in ipairs(type.fields) do
        local slot = 4 + 2 * field.number
        local offset = length >= slot + 2 and u16(vtable + slot) or 0
        if offset == 0 then
            absent[#absent + 1] = field.name
        elseif not read[field.kind](tree, field, at + offset) then
            return false
        end
    end
    if #absent ~= 0 and may_show(tree) then
        tree:add(package, reader.bytes(at, 0), "Absent, and so zero: " .. table.concat(absent, " ")):set_generated()
    end
    return true
end

local function read_message(tvb, pinfo, tree, type)
    local size = tvb:captured_len()
    pinfo.cols.protocol = PACKAGE
    pinfo.cols.info = type.name
    local item = tree:add(package, tvb(0, size), type.name)
    reader = {bytes = tvb, size = size, items = 0, failed = false, is_cut = pinfo.private["vorn.cut"] == "yes" or size < tvb:reported_len()}
    if size < 4 then
        fail(item, size .. " bytes are no message")
    else
        item:add_le(m.root, tvb(0, 4))
        read_table(item, type, u32(0), type.root_decoder)
    end
    if reader.failed then pinfo.cols.info:append(reader.is_cut and ", cut" or ", damaged") end
    return size
end

for _, type in pairs(types) do
    for _, field in ipairs(type.fields) do
        if field.of then field.of = types[field.of] end
        if field.display == "numbers" then
            local make = ({ProtoField.uint8, ProtoField.uint16, nil, ProtoField.uint32, nil, nil, nil, ProtoField.uint64})[field.bytes]
            field.element = make(PREFIX .. "." .. type.name .. "." .. field.name .. ".element", "Element", base.DEC)
            fields[#fields + 1] = field.element
        end
    end
end
local names = {}
for _, type in ipairs(messages) do
    local proto = Proto(string.lower(type.name), type.name)
    function proto.dissector(tvb, pinfo, tree) return read_message(tvb, pinfo, tree, type) end
    id_table:add(type.id, proto)
    names[type.id] = type.name
end
package.fields = fields

if is_later then return end

-- ---- captures -------------------------------------------------------------------------------------------

local bus = Proto("vorn", "VORN bus")
local malformed_header = ProtoExpert.new("vorn.malformed", "No message of the bus", expert.group.MALFORMED, expert.severity.ERROR)
bus.experts = {malformed_header}

local h = {
    version = ProtoField.uint8("vorn.version", "Version", base.DEC),
    bytes = ProtoField.uint8("vorn.header_bytes", "Header bytes", base.DEC),
    flags = ProtoField.uint16("vorn.flags", "Flags", base.HEX),
    id = ProtoField.uint32("vorn.id", "Message id", base.HEX, names),
    source = ProtoField.uint32("vorn.source", "Source", base.DEC),
    destination = ProtoField.uint32("vorn.destination", "Destination", base.DEC),
    target = ProtoField.uint64("vorn.target", "Target", base.DEC),
    position = ProtoField.uint32("vorn.position", "Position in the batch", base.DEC),
    count = ProtoField.uint32("vorn.count", "Messages in the batch", base.DEC),
    batch = ProtoField.uint64("vorn.batch", "Batch", base.DEC),
}
bus.fields = {h.version, h.bytes, h.flags, h.id, h.source, h.destination, h.target, h.position, h.count, h.batch}

function bus.dissector(tvb, pinfo, tree)
    local captured = tvb:captured_len()
    local head = captured >= 2 and tvb(1, 1):uint() or 0
    local item = tree:add(bus, tvb(0, math.min(captured, math.max(head, 2))))
    if head < HEADER_BYTES or head > captured or tvb(0, 1):uint() ~= 1 then
        item:add_proto_expert_info(malformed_header, "not the header of a message")
        return captured
    end
    item:add(h.version, tvb(0, 1))
    item:add(h.bytes, tvb(1, 1))
    item:add_le(h.flags, tvb(2, 2))
    local id = tvb(4, 4):le_uint()
    local dissector = id_table:get_dissector(id)
    local shown_id = item:add_le(h.id, tvb(4, 4))
    if dissector and not names[id] then  -- of another script
        shown_id:set_text(string.format("Message id: %s (0x%08x)", dissector, id))
    end
    item:add_le(h.source, tvb(8, 4))
    item:add_le(h.destination, tvb(12, 4))
    item:add_le(h.target, tvb(16, 8))
    item:add_le(h.position, tvb(24, 4))
    item:add_le(h.count, tvb(28, 4))
    item:add_le(h.batch, tvb(32, 8))
    local source, destination = tvb(8, 4):le_uint(), tvb(12, 4):le_uint()
    item:append_text(", from " .. source .. " to " .. destination)
    pinfo.cols.src = tostring(source)
    pinfo.cols.dst = tostring(destination)
    pinfo.cols.protocol = "VORN"
    pinfo.cols.info = string.format("unknown id 0x%08X", id)
    if dissector then
        -- The part of the packet that is passed on does not show that the packet was cut.
        pinfo.private["vorn.cut"] = captured < tvb:reported_len() and "yes" or "no"
        id_table:try(id, tvb(head):tvb(), pinfo, tree)
    end
    return captured
end

DissectorTable.get("wtap_encap"):add((wtap_encaps or wtap).USER0, bus)
