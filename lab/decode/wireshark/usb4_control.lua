-- Dissector of the control ring as `usb4lab run --pcapng` captures it.
--   tshark -X lua_script:lab/decode/wireshark/usb4_control.lua -r FILE -V
-- Runs on Lua 5.2 to 5.4: bits through ProtoField masks and tvb:bitfield(), arithmetic only in bxor().

local proto = Proto("usb4ctl", "USB4 control packet")

local PDF = {
  [1] = "Read", [2] = "Write", [3] = "Notification", [5] = "Hot-plug event",
  [6] = "Inter-domain request", [7] = "Inter-domain response",
}
local SPACE = { [0] = "path", [1] = "adapter", [2] = "router", [3] = "counters" }
local ERROR = {
  [0] = "not connected", [1] = "link error", [2] = "no such address or space", [4] = "no such adapter",
  [7] = "acknowledgement of a plug event", [8] = "router not enumerated", [9] = "not for this route's manager",
  [10] = "wrong length", [11] = "header error", [12] = "flow control error", [13] = "plug-event error", [14] = "adapter locked",
}
local DISCOVERY = "b638d70e42ff40bb97c290e2c0b2ff07"
local NETWORK = "798f589e36168a4797c65664a920c8dd"
local XD_TYPE = {
  [1] = "UUID request, older form", [2] = "UUID response", [3] = "Properties request", [4] = "Properties response",
  [5] = "Properties changed request", [6] = "Properties changed response", [7] = "Error response", [12] = "UUID request",
  [15] = "Link state status request", [16] = "Link state status response", [17] = "Link state change request",
  [18] = "Link state change response",
}
local XD_ERROR = { [1] = "unknown packet", [2] = "unknown domain", [3] = "not supported", [4] = "not ready" }
local CRC_STATE = { [0] = "bad", [1] = "good" }

local f = {
  format = ProtoField.uint8("usb4ctl.format", "Capture format"),
  ring = ProtoField.uint8("usb4ctl.ring", "Ring"),
  sof = ProtoField.uint8("usb4ctl.sof", "Start-of-frame type", base.DEC, PDF),
  pdf = ProtoField.uint8("usb4ctl.pdf", "Type", base.DEC, PDF),
  route = ProtoField.uint64("usb4ctl.route", "Route", base.HEX),
  up = ProtoField.uint32("usb4ctl.header", "Header bits 31:22", base.HEX, nil, 0xFFC00000),
  address = ProtoField.uint32("usb4ctl.address", "Address word", base.HEX),
  offset = ProtoField.uint32("usb4ctl.offset", "Offset (dwords)", base.HEX, nil, 0x00001FFF),
  length = ProtoField.uint32("usb4ctl.length", "Length (dwords)", base.DEC, nil, 0x0007E000),
  adapter = ProtoField.uint32("usb4ctl.adapter", "Adapter", base.DEC, nil, 0x01F80000),
  space = ProtoField.uint32("usb4ctl.space", "Space", base.DEC, SPACE, 0x06000000),
  sequence = ProtoField.uint32("usb4ctl.sequence", "Sequence number", base.DEC, nil, 0x18000000),
  reserved = ProtoField.uint32("usb4ctl.reserved", "Reserved", base.HEX, nil, 0xE0000000),
  data = ProtoField.uint32("usb4ctl.data", "Data", base.HEX),
  error = ProtoField.uint32("usb4ctl.error", "Error word", base.HEX),
  code = ProtoField.uint32("usb4ctl.code", "Code", base.DEC, ERROR, 0x0000000F),
  event_adapter = ProtoField.uint32("usb4ctl.event_adapter", "Adapter", base.DEC, nil, 0x00003F00),
  plug_state = ProtoField.uint32("usb4ctl.plug_state", "Plug state (2 plug, 3 unplug)", base.DEC, nil, 0xC0000000),
  event = ProtoField.uint32("usb4ctl.event", "Event word", base.HEX),
  plug_adapter = ProtoField.uint32("usb4ctl.plug_adapter", "Adapter", base.DEC, nil, 0x0000003F),
  unplug = ProtoField.bool("usb4ctl.unplug", "Unplug", 32, nil, 0x80000000),
  xd_length = ProtoField.uint32("usb4ctl.xd.length", "Words behind this one", base.DEC, nil, 0x0000003F),
  xd_sequence = ProtoField.uint32("usb4ctl.xd.sequence", "Sequence number", base.DEC, nil, 0x18000000),
  xd_protocol = ProtoField.string("usb4ctl.xd.protocol", "Protocol UUID"),
  xd_type = ProtoField.uint32("usb4ctl.xd.type", "Inter-domain type", base.DEC, XD_TYPE),
  xd_uuid = ProtoField.string("usb4ctl.xd.uuid", "UUID"),
  xd_from = ProtoField.string("usb4ctl.xd.from", "Sender's UUID"),
  xd_to = ProtoField.string("usb4ctl.xd.to", "Receiver's UUID"),
  xd_route = ProtoField.uint64("usb4ctl.xd.route", "Route that the request came on", base.HEX),
  xd_offset = ProtoField.uint32("usb4ctl.xd.offset", "Offset in the block (words)", base.DEC, nil, 0x0000FFFF),
  xd_total = ProtoField.uint32("usb4ctl.xd.total", "Words in the block", base.DEC, nil, 0xFFFF0000),
  xd_generation = ProtoField.uint32("usb4ctl.xd.generation", "Generation of the block", base.HEX),
  xd_block = ProtoField.uint32("usb4ctl.xd.block", "Block word", base.HEX),
  xd_error = ProtoField.uint32("usb4ctl.xd.error", "Error code", base.DEC, XD_ERROR),
  xd_status = ProtoField.uint32("usb4ctl.xd.status", "Status", base.DEC),
  xd_widths = ProtoField.uint32("usb4ctl.xd.widths", "Supported link widths", base.HEX, nil, 0x000000FF),
  xd_width = ProtoField.uint32("usb4ctl.xd.width", "Target link width", base.DEC, nil, 0x0000FF00),
  xd_speeds = ProtoField.uint32("usb4ctl.xd.speeds", "Supported link speeds", base.HEX, nil, 0x00FF0000),
  xd_speed = ProtoField.uint32("usb4ctl.xd.speed", "Target link speed", base.HEX, nil, 0xFF000000),
  xd_new_width = ProtoField.uint32("usb4ctl.xd.new_width", "Target link width", base.DEC, nil, 0x000000FF),
  xd_new_speed = ProtoField.uint32("usb4ctl.xd.new_speed", "Target link speed", base.HEX, nil, 0x0000FF00),
  crc = ProtoField.uint32("usb4ctl.crc", "CRC-32C", base.HEX),
  crc_status = ProtoField.uint8("usb4ctl.crc.status", "CRC status", base.DEC, CRC_STATE),
  answer_in = ProtoField.framenum("usb4ctl.answer_in", "Answered in frame", base.NONE, frametype.RESPONSE),
  request_in = ProtoField.framenum("usb4ctl.request_in", "Answers frame", base.NONE, frametype.REQUEST),
  answer_time = ProtoField.double("usb4ctl.answer_time_ms", "Time from request (ms)"),
}
for _, field in pairs(f) do proto.fields[#proto.fields + 1] = field end

local crc_wrong = ProtoExpert.new("usb4ctl.crc.bad", "CRC-32C is wrong", expert.group.CHECKSUM, expert.severity.ERROR)
local too_short = ProtoExpert.new("usb4ctl.short", "Shorter than its header", expert.group.MALFORMED, expert.severity.ERROR)
proto.experts = { crc_wrong, too_short }

local comment_field = Field.new("frame.comment")
local interface_field = Field.new("frame.interface_id")
local flags_field = Field.new("frame.packet_flags_direction")

-- Exclusive or of two numbers of up to 32 bits, a nibble at a time.
local NIBBLE = {}
for a = 0, 15 do
  NIBBLE[a] = {}
  for b = 0, 15 do
    local result, bit, x, y = 0, 1, a, b
    while bit < 16 do
      if x % 2 ~= y % 2 then result = result + bit end
      x, y, bit = math.floor(x / 2), math.floor(y / 2), bit * 2
    end
    NIBBLE[a][b] = result
  end
end
local function bxor(a, b)
  local result, scale = 0, 1
  while a > 0 or b > 0 do
    result = result + NIBBLE[a % 16][b % 16] * scale
    a, b, scale = math.floor(a / 16), math.floor(b / 16), scale * 16
  end
  return result
end

-- CRC-32C: reflected polynomial 0x82F63B78, all ones before and after.
local TABLE = {}
for i = 0, 255 do
  local c = i
  for _ = 1, 8 do
    local odd = c % 2
    c = math.floor(c / 2)
    if odd == 1 then c = bxor(c, 0x82F63B78) end
  end
  TABLE[i] = c
end
local function crc32c(tvb, first, count)
  local c = 0xFFFFFFFF
  for i = first, first + count - 1 do
    c = bxor(math.floor(c / 256), TABLE[bxor(c % 256, tvb(i, 1):uint())])
  end
  return bxor(c, 0xFFFFFFFF)
end

-- Requests that wait for their answer, and the pairs found in the first pass over the file.
local open_requests, pairs_by_request, pairs_by_answer = {}, {}, {}
function proto.init()
  open_requests, pairs_by_request, pairs_by_answer = {}, {}, {}
end

local function remember(key, pinfo, is_request, is_error)
  local now = tonumber(tostring(pinfo.rel_ts))
  if is_request then
    open_requests[#open_requests + 1] = { key = key, number = pinfo.number, time = now }
    return
  end
  -- An error packet answers the oldest request of the host, whatever its route: that is how the driver takes it.
  for i, request in ipairs(open_requests) do
    if (is_error and request.key:sub(1, 5) ~= "peer/") or request.key == key then
      pairs_by_request[request.number] = pinfo.number
      pairs_by_answer[pinfo.number] = { number = request.number, time = (now - request.time) * 1000 }
      table.remove(open_requests, i)
      return
    end
  end
end

local function show_pair(tree, pinfo)
  local answer = pairs_by_request[pinfo.number]
  if answer then tree:add(f.answer_in, answer):set_generated() end
  local request = pairs_by_answer[pinfo.number]
  if request then
    tree:add(f.request_in, request.number):set_generated()
    tree:add(f.answer_time, request.time):set_generated()
  end
end

local function address_word(tvb, tree)
  local range = tvb(12, 4)
  local word = tree:add(f.address, range)
  for _, field in ipairs({ f.offset, f.length, f.adapter, f.space, f.sequence, f.reserved }) do word:add(field, range) end
  return {
    reserved = range:bitfield(0, 3), sequence = range:bitfield(3, 2), space = range:bitfield(5, 2),
    adapter = range:bitfield(7, 6), length = range:bitfield(13, 6), offset = range:bitfield(19, 13),
  }
end

local function dissect_address(tvb, pinfo, tree, pdf, route, outbound, words)
  local a = address_word(tvb, tree)
  local has_data = (pdf == 1) ~= outbound
  if has_data then
    for i = 3, words - 1 do tree:add(f.data, tvb(4 + 4 * i, 4)):append_text(string.format(" (dword 0x%x)", a.offset + i - 3)) end
  end
  if not pinfo.visited then
    remember(table.concat({ interface_field().value, route, pdf, a.sequence, a.space, a.offset, a.length }, "/"), pinfo, outbound)
  end
  return string.format("%s %s route %s adapter %d %s 0x%x +%d seq %d", PDF[pdf], outbound and "request" or "answer", route,
                       a.adapter, SPACE[a.space], a.offset, a.length, a.sequence)
end

local function dissect_notification(tvb, pinfo, tree, route, outbound)
  local range = tvb(12, 4)
  local word = tree:add(f.error, range)
  word:add(f.code, range)
  word:add(f.event_adapter, range)
  local code, adapter = range:bitfield(28, 4), range:bitfield(18, 6)
  if outbound then
    word:add(f.plug_state, range)
    return string.format("Acknowledge %s route %s adapter %d", range:bitfield(0, 2) == 3 and "unplug" or "plug", route, adapter)
  end
  if not pinfo.visited then remember(nil, pinfo, false, true) end
  return string.format("Error route %s adapter %d: %s", route, adapter, ERROR[code] or ("code " .. code))
end

-- A request of either side waits for an answer from the other one with its route and sequence number. A repetition takes
-- the place of the request that it repeats.
local function remember_inter_domain(pinfo, is_request, outbound, route, sequence)
  local asker = (is_request == outbound) and "host" or "peer"
  local key = table.concat({ asker, interface_field().value, route, "inter-domain", sequence }, "/")
  if is_request then
    for i = #open_requests, 1, -1 do
      if open_requests[i].key == key then table.remove(open_requests, i) end
    end
  end
  remember(key, pinfo, is_request)
end

local function word_at(tvb, i) return tvb(4 + 4 * i, 4) end

-- Sixteen bytes as their host stores them: the wire carries each word most significant byte first.
local function uuid_at(tvb, first)
  local text = ""
  for i = first, first + 3 do
    local word = word_at(tvb, i)
    for byte = 3, 0, -1 do text = text .. string.format("%02x", word(byte, 1):uint()) end
  end
  return text
end

local function add_uuid(tvb, tree, field, first) tree:add(field, tvb(4 + 4 * first, 16), uuid_at(tvb, first)) end

local function add_block(tvb, tree, words)
  local offset = word_at(tvb, 16):bitfield(16, 16)
  tree:add(f.xd_offset, word_at(tvb, 16))
  tree:add(f.xd_total, word_at(tvb, 16))
  tree:add(f.xd_generation, word_at(tvb, 17))
  for i = 18, words - 1 do tree:add(f.xd_block, word_at(tvb, i)):append_text(string.format(" (word %d)", offset + i - 18)) end
  return string.format(" offset %d of %d, %d words", offset, word_at(tvb, 16):bitfield(0, 16), words - 18)
end

-- By type: how many words there must be, and what to make of them; the result goes behind the line of the packet.
local XD_PAYLOAD = {
  [2] = { 14, function(tvb, tree)
    add_uuid(tvb, tree, f.xd_uuid, 8)
    tree:add(f.xd_route, tvb(4 + 4 * 12, 8))
    return " " .. uuid_at(tvb, 8)
  end },
  [3] = { 17, function(tvb, tree)
    add_uuid(tvb, tree, f.xd_from, 8)
    add_uuid(tvb, tree, f.xd_to, 12)
    tree:add(f.xd_offset, word_at(tvb, 16))
    return string.format(" offset %d", word_at(tvb, 16):bitfield(16, 16))
  end },
  [4] = { 18, function(tvb, tree, words)
    add_uuid(tvb, tree, f.xd_from, 8)
    add_uuid(tvb, tree, f.xd_to, 12)
    return add_block(tvb, tree, words)
  end },
  [5] = { 12, function(tvb, tree) add_uuid(tvb, tree, f.xd_from, 8) return "" end },
  [7] = { 9, function(tvb, tree)
    tree:add(f.xd_error, word_at(tvb, 8))
    local code = word_at(tvb, 8):uint()
    return ": " .. (XD_ERROR[code] or ("code " .. code))
  end },
  [16] = { 10, function(tvb, tree)
    tree:add(f.xd_status, word_at(tvb, 8))
    for _, field in ipairs({ f.xd_widths, f.xd_width, f.xd_speeds, f.xd_speed }) do tree:add(field, word_at(tvb, 9)) end
    return string.format(" status %d", word_at(tvb, 8):uint())
  end },
  [17] = { 9, function(tvb, tree)
    tree:add(f.xd_new_width, word_at(tvb, 8))
    tree:add(f.xd_new_speed, word_at(tvb, 8))
    return string.format(" width %d", word_at(tvb, 8):bitfield(24, 8))
  end },
  [18] = { 9, function(tvb, tree)
    tree:add(f.xd_status, word_at(tvb, 8))
    return string.format(" status %d", word_at(tvb, 8):uint())
  end },
}

local function dissect_inter_domain(tvb, pinfo, tree, pdf, route, outbound, words)
  local length = word_at(tvb, 2)
  tree:add(f.xd_length, length)
  tree:add(f.xd_sequence, length)
  local sequence = length:bitfield(3, 2)
  if words < 8 then return string.format("%s route %s", PDF[pdf], route) end
  if not pinfo.visited then remember_inter_domain(pinfo, pdf == 6, outbound, route, sequence) end
  local protocol, kind = uuid_at(tvb, 3), word_at(tvb, 7):uint()
  tree:add(f.xd_protocol, tvb(4 + 4 * 3, 16), protocol)
  if protocol ~= DISCOVERY then
    for i = 7, words - 1 do tree:add(f.data, word_at(tvb, i)):append_text(string.format(" (word %d)", i)) end
    return string.format("%s%s route %s seq %d", protocol == NETWORK and "Network " or "", PDF[pdf], route, sequence)
  end
  tree:add(f.xd_type, word_at(tvb, 7))
  local payload, more = XD_PAYLOAD[kind], ""
  if payload and words >= payload[1] then more = payload[2](tvb, tree, words) end
  return string.format("%s route %s seq %d%s", XD_TYPE[kind] or ("Inter-domain type " .. kind), route, sequence, more)
end

local function dissect_plug(tvb, tree, route)
  local range = tvb(12, 4)
  local word = tree:add(f.event, range)
  word:add(f.plug_adapter, range)
  word:add(f.unplug, range)
  return string.format("%s route %s adapter %d", range:bitfield(0, 1) == 1 and "Unplug" or "Plug", route, range:bitfield(26, 6))
end

function proto.dissector(tvb, pinfo, root)
  pinfo.cols.protocol = "USB4"
  if tvb:len() == 0 then
    local comment = comment_field()
    pinfo.cols.info = comment and ("-- " .. tostring(comment.value) .. " --") or "-- event --"
    return 0
  end
  local tree = root:add(proto, tvb())
  if tvb:len() < 8 then tree:add_proto_expert_info(too_short) return tvb:len() end
  tree:add(f.format, tvb(0, 1))
  tree:add(f.ring, tvb(1, 1))
  tree:add(f.sof, tvb(2, 1))
  tree:add(f.pdf, tvb(3, 1))
  local pdf, size = tvb(3, 1):uint(), tvb:len() - 8
  local words = math.floor(size / 4)
  local direction = flags_field()
  local outbound = direction ~= nil and direction.value == 2
  local info = PDF[pdf] or ("type " .. pdf)
  if words >= 2 then
    local high, low = tvb(4, 4):bitfield(10, 22), tvb(8, 4):uint()
    local route = high == 0 and string.format("%x", low) or string.format("%x%08x", high, low)
    tree:add(f.route, tvb(4, 8), UInt64(low, high))
    tree:add(f.up, tvb(4, 4))
    if words >= 3 then
      if pdf == 1 or pdf == 2 then info = dissect_address(tvb, pinfo, tree, pdf, route, outbound, words)
      elseif pdf == 3 then info = dissect_notification(tvb, pinfo, tree, route, outbound)
      elseif pdf == 5 then info = dissect_plug(tvb, tree, route)
      elseif pdf == 6 or pdf == 7 then info = dissect_inter_domain(tvb, pinfo, tree, pdf, route, outbound, words) end
    end
  end
  if words < 3 then tree:add_proto_expert_info(too_short) end
  local good = crc32c(tvb, 4, size) == tvb(4 + size, 4):uint()
  tree:add(f.crc, tvb(4 + size, 4))
  tree:add(f.crc_status, good and 1 or 0):set_generated()
  if not good then
    tree:add_proto_expert_info(crc_wrong)
    info = info .. " [bad CRC]"
  end
  show_pair(tree, pinfo)
  pinfo.cols.info = info
  return tvb:len()
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, proto)
