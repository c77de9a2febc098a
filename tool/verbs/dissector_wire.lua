-- SPDX-License-Identifier: Apache-2.0
-- ---- nats -----------------------------------------------------------------------------------------------
-- The bus between machines, as it passes over TCP without TLS: lines of the server's protocol, some with a payload.

local wire = Proto("vorn_nats", "VORN bus on nats")
local MOST_LINE = 65536
local MOST_PAYLOAD = 67108864
local KINDS = {"batch", "hello", "welcome", "data", "ask", "counters", "watch", "watching", "wake"}
local HAS_PAYLOAD = {PUB = true, HPUB = true, MSG = true, HMSG = true}
local HAS_NONE = {INFO = true, CONNECT = true, SUB = true, UNSUB = true, PING = true, PONG = true, ["+OK"] = true, ["-ERR"] = true}

local w = {
    kind = ProtoField.uint8("vorn.kind", "Kind", base.DEC),
    session = ProtoField.uint64("vorn.session", "Session", base.HEX),
    first = ProtoField.uint64("vorn.first", "First batch", base.DEC),
    batches = ProtoField.uint32("vorn.batches", "Batches", base.DEC),
    pending = ProtoField.uint32("vorn.pending", "Pending batches", base.DEC),
    attempt = ProtoField.uint32("vorn.attempt", "Attempt", base.DEC),
    bytes = ProtoField.uint32("vorn.message_bytes", "Message bytes", base.DEC),
    batch_bytes = ProtoField.uint32("vorn.batch_bytes", "Batch bytes", base.DEC),
}
wire.fields = {w.kind, w.session, w.first, w.batches, w.pending, w.attempt, w.bytes, w.batch_bytes}
local malformed_packet = ProtoExpert.new("vorn_nats.malformed", "No packet of the bus", expert.group.MALFORMED, expert.severity.ERROR)
wire.experts = {malformed_packet}

-- "VORN", version 1, kind, two zero bytes; nil: none.
local function kind_at(tvb, at)
    if tvb:len() - at < 8 or tvb:raw(at, 5) ~= "VORN\1" or tvb(at + 6, 2):uint() ~= 0 then return nil end
    return tvb(at + 5, 1):uint()
end

-- The batch at a position: shows it with its messages, and returns its bytes; nil: it is damaged.
local function show_batch(tvb, at, number, pinfo, tree, seen)
    local left = tvb:len() - at
    if kind_at(tvb, at) ~= 1 or left < 32 then return nil end
    local count, bytes = tvb(at + 24, 4):le_uint(), tvb(at + 28, 4):le_uint()
    if bytes > left or bytes < 32 or count == 0 or count > (bytes - 32) / 8 then return nil end
    local source, destination = tvb(at + 12, 4):le_uint(), tvb(at + 8, 4):le_uint()
    local item = tree:add(bus, tvb(at, bytes), string.format("Batch, from %.0f to %.0f", source, destination))
    item:add(h.batch, number):set_generated()
    item:add_le(h.destination, tvb(at + 8, 4))
    item:add_le(h.source, tvb(at + 12, 4))
    item:add_le(h.target, tvb(at + 16, 8))
    item:add_le(h.count, tvb(at + 24, 4))
    item:add_le(w.batch_bytes, tvb(at + 28, 4))
    local message = at + 32 + 8 * count
    for k = 0, count - 1 do
        local entry = at + 32 + 8 * k
        local id, length = tvb(entry, 4):le_uint(), tvb(entry + 4, 4):le_uint()
        if length > at + bytes - message then return nil end
        item:add_le(h.id, tvb(entry, 4))
        item:add_le(w.bytes, tvb(entry + 4, 4))
        local dissector = id_table:get_dissector(id)
        seen[#seen + 1] = names[id] or dissector and tostring(dissector) or string.format("unknown id 0x%08X", id)
        if dissector and length > 0 then
            pinfo.private["vorn.cut"] = "no"
            id_table:try(id, tvb(message, length):tvb(), pinfo, item)
        end
        message = message + length
    end
    if message ~= at + bytes then return nil end
    return bytes
end

local function show_payload(tvb, pinfo, tree, seen)
    local kind = kind_at(tvb, 0)
    if not kind then return end
    local item = tree:add(wire, tvb(), "Packet of the bus: " .. (KINDS[kind] or "unknown"))
    item:add(w.kind, tvb(5, 1))
    if kind ~= 4 then
        seen[#seen + 1] = KINDS[kind]
        return
    end
    local at = 40
    if tvb:len() < at then
        item:add_proto_expert_info(malformed_packet, "the packet is too short")
        return
    end
    item:add_le(w.session, tvb(8, 8))
    item:add_le(w.first, tvb(16, 8))
    item:add_le(w.batches, tvb(24, 4))
    item:add_le(w.pending, tvb(28, 4))
    item:add_le(w.attempt, tvb(32, 4))
    local number = tvb(16, 8):le_uint64()
    while at < tvb:len() do
        local bytes = show_batch(tvb, at, number, pinfo, item, seen)
        if not bytes then
            item:add_proto_expert_info(malformed_packet, "a batch is damaged, at byte " .. at)
            return
        end
        number = number + 1
        at = at + bytes
    end
end

-- The end of the line at a position, without its CR and LF; nil: it has not come yet.
local function line_end(tvb, at)
    return tvb:raw(at, math.min(tvb:len() - at, MOST_LINE)):find("\r\n", 1, true)
end

-- Whether a line of the protocol begins there: its first word is one, or all that has come of one.
local function is_line(text, from)
    local word = text:match("^[%a+-]+", from)
    if not word then return false end
    if HAS_PAYLOAD[word] or HAS_NONE[word] then return true end
    if from + #word <= #text then return false end
    for _, words in ipairs({HAS_PAYLOAD, HAS_NONE}) do
        for known in pairs(words) do
            if known:sub(1, #word) == word then return true end
        end
    end
    return false
end

-- Where the next line begins of which this is the protocol; nil: nowhere. A capture may begin within a payload.
local function next_line(tvb, at)
    local text = tvb:raw(at, tvb:len() - at)
    local from = 1
    while from do
        if is_line(text, from) then return at + from - 1 end
        local _, last = text:find("\r\n", from, true)
        from = last and last + 1
    end
    return nil
end

function wire.dissector(tvb, pinfo, tree)
    local size = tvb:len()
    local at = next_line(tvb, 0)
    if not at then return 0 end
    local seen = {}
    pinfo.cols.protocol = "VORN"
    while at and at < size do
        local length = line_end(tvb, at)
        if not length then
            if size - at >= MOST_LINE then break end
            pinfo.desegment_offset = at
            pinfo.desegment_len = DESEGMENT_ONE_MORE_SEGMENT
            break
        end
        local line = tvb:raw(at, length - 1)
        local word = line:match("^%S+")
        local payload, bytes = at + length + 1, 0
        if HAS_PAYLOAD[word] then
            bytes = tonumber(line:match("(%d+)%s*$") or "") or 0
            if bytes > MOST_PAYLOAD then break end
            if size - payload < bytes + 2 then
                pinfo.desegment_offset = at
                pinfo.desegment_len = payload + bytes + 2 - size
                break
            end
        end
        local item = tree:add(wire, tvb(at, payload + bytes - at), "nats: " .. line:sub(1, 200))
        if HAS_PAYLOAD[word] then
            local head = word:sub(1, 1) == "H" and tonumber(line:match("(%d+)%s+%d+%s*$") or "") or 0
            if bytes > head then show_payload(tvb(payload + head, bytes - head):tvb(), pinfo, item, seen) end
            at = payload + bytes + 2
        else
            at = payload
        end
    end
    pinfo.cols.protocol = "VORN"
    pinfo.cols.info = #seen == 0 and "nats" or "nats: " .. table.concat(seen, ", ", 1, math.min(#seen, 20))
    return size
end

DissectorTable.get("tcp.port"):add(4222, wire)
