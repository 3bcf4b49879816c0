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

local function remember(key, pinfo, outbound, is_error)
  local now = tonumber(tostring(pinfo.rel_ts))
  if outbound then
    open_requests[#open_requests + 1] = { key = key, number = pinfo.number, time = now }
    return
  end
  -- An error packet answers the oldest request, whatever its route: that is how the driver takes it.
  for i, request in ipairs(open_requests) do
    if is_error or request.key == key then
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
      elseif pdf == 5 then info = dissect_plug(tvb, tree, route) end
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
