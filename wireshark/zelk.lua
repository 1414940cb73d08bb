-- SPDX-License-Identifier: GPL-2.0-only
--
-- What ZelkBoard Digital E1 cards and the library say to each other, for Wireshark 4: discovery, control stream, audio.
-- D-channel frames go to Wireshark's own LAPD dissector, so filters such as q931.cause_value == 17 work on a plain capture.
-- Goes into the personal plugin folder (Help > About Wireshark > Folders), or: tshark -X lua_script:zelk.lua -r FILE
-- The formats are in docs/wire-format.md.

local CARD_PORT = 5854
local FROM_CARD, FROM_LIBRARY = 1, 2

local discovery = Proto("zelkdisc", "ZelkBoard discovery")
local control = Proto("zelk", "ZelkBoard control")
local audio = Proto("zelkaudio", "ZelkBoard audio")

local d = discovery.fields
d.kind = ProtoField.string("zelkdisc.kind", "Datagram")
d.serial = ProtoField.uint32("zelkdisc.serial", "Serial number")

local TYPES = {
  [FROM_CARD] = { [0x01] = "Information", [0x02] = "Register value", [0x07] = "Trunk status", [0x10] = "D-channel frame",
                  [0x11] = "HDLC error" },
  [FROM_LIBRARY] = { [0x01] = "Information request", [0x02] = "Register read", [0x04] = "Start", [0x05] = "Audio port",
                     [0x10] = "D-channel frame", [0x12] = "Trunk configuration" },
}
local HDLC_ERRORS = { [2] = "CRC", [3] = "abort", [4] = "overrun", [8] = "buffer overflow" }

local c = control.fields
c.type = ProtoField.uint8("zelk.type", "Type", base.HEX)
c.name = ProtoField.string("zelk.message", "Message")
c.trunk = ProtoField.uint8("zelk.trunk", "Trunk (from 1)")
c.trunks = ProtoField.uint8("zelk.trunks", "Number of trunks")
c.serial = ProtoField.uint32("zelk.serial", "Serial number")
c.firmware = ProtoField.uint8("zelk.firmware", "Firmware version")
c.features = ProtoField.uint32("zelk.features", "Feature flags", base.HEX)
c.register = ProtoField.uint16("zelk.register", "Register", base.HEX)
c.value = ProtoField.uint8("zelk.value", "Value", base.HEX)
c.port = ProtoField.uint16("zelk.audio_port", "Audio port")
c.crc4 = ProtoField.uint8("zelk.crc4", "CRC-4")
c.status = ProtoField.uint8("zelk.status", "Status (0 in service)")
c.hdlc = ProtoField.uint8("zelk.hdlc_error", "HDLC error", base.DEC, HDLC_ERRORS)
c.length = ProtoField.uint16("zelk.length", "Length")
c.side = ProtoField.string("zelk.frame", "Layer 2")
c.fcs = ProtoField.uint16("zelk.fcs", "Frame check sequence", base.HEX)
c.skipped = ProtoField.bytes("zelk.skipped", "No message")
local bad_fcs = ProtoExpert.new("zelk.fcs.bad", "Bad frame check sequence", expert.group.CHECKSUM, expert.severity.ERROR)
control.experts = { bad_fcs }
control.prefs.trunks = Pref.uint("Trunks of a card", 0, "Where the capture has no card information; 0: as a status shows")

local a = audio.fields
a.sequence = ProtoField.uint32("zelkaudio.sequence", "Sequence number")
a.hint = ProtoField.uint8("zelkaudio.hint", "Backlog hint")
a.frames = ProtoField.uint16("zelkaudio.frames", "Bytes of samples")
a.gap = ProtoField.int32("zelkaudio.gap", "Packets missing before this one")
a.reply_in = ProtoField.framenum("zelkaudio.reply_in", "Reply in", base.NONE, frametype.RESPONSE)
a.reply_to = ProtoField.framenum("zelkaudio.reply_to", "Reply to", base.NONE, frametype.REQUEST)
a.reply_time = ProtoField.double("zelkaudio.reply_time", "Reply time (ms)")

local lapd = Dissector.get("lapd")

-- What the first pass over the capture learns.
local cards, roles, streams, audio_notes

function control.init()
  cards = {}        -- by address: number of trunks
  roles = {}        -- by connection and trunk: the library is the network side
  streams = {}      -- by card: what its audio has come to
  audio_notes = {}  -- by frame: gap, reply_to, reply_in, reply_time
end

local function fcs_of(tvb)
  local crc = 0xFFFF
  for i = 0, tvb:len() - 1 do
    crc = bit32.bxor(crc, tvb(i, 1):uint())
    for _ = 1, 8 do
      local low = bit32.band(crc, 1)
      crc = bit32.rshift(crc, 1)
      if low == 1 then crc = bit32.bxor(crc, 0x8408) end
    end
  end
  return bit32.bxor(crc, 0xFFFF)
end

-- Commands of the network side have the C/R bit set, responses of the user side too.
local function learn_role(key, tvb, from_library)
  if tvb:len() < 3 then return end
  local bit = bit32.band(tvb(0, 1):uint(), 2) ~= 0
  local octet = tvb(2, 1):uint()
  local kind = bit32.band(octet, 0xEF)
  if bit32.band(octet, 1) == 0 or kind == 0x6F or kind == 0x43 or kind == 0x03 then
    roles[key] = bit == from_library
  elseif kind == 0x63 or kind == 0x0F or kind == 0x87 then
    roles[key] = bit ~= from_library
  end
end

-- Without a pseudo-header the LAPD dissector takes each frame for a command: what it is stands here.
local function side_of(tvb, from_library, is_network)
  local is_command = (bit32.band(tvb(0, 1):uint(), 2) ~= 0) == (from_library == is_network)
  local octet = tvb(2, 1):uint()
  local is_set
  if bit32.band(octet, 3) == 3 then
    is_set = bit32.band(octet, 0x10) ~= 0
  else
    is_set = tvb:len() > 3 and bit32.band(tvb(3, 1):uint(), 1) ~= 0
  end
  return (is_command and "command" or "response") .. (is_set and (is_command and ", P" or ", F") or "")
end

local function dissect_frame(tvb, pinfo, root, branch, from_library, trunk, key)
  if not pinfo.visited then learn_role(key .. "/" .. trunk, tvb, from_library) end
  local is_network = roles[key .. "/" .. trunk]
  if is_network ~= nil then
    branch:add(c.side, side_of(tvb, from_library, is_network)):set_generated()
  end
  lapd:call(tvb:tvb(), pinfo, root)
end

-- Bytes of the message at `at`; nil when more are needed, 0 when none begins there.
local function size_at(tvb, at, side, trunks)
  local left = tvb:len() - at
  if tvb(at, 1):uint() ~= 0xFF then return 0 end
  if left < 2 then return nil end
  local kind = tvb(at + 1, 1):uint()
  if not TYPES[side][kind] then return 0 end
  if kind == 0x10 then
    if left < 5 then return nil end
    local length = tvb(at + 3, 2):le_uint()
    if length > 300 or tvb(at + 2, 1):uint() < 1 or tvb(at + 2, 1):uint() > 8 then return 0 end
    return length + (side == FROM_CARD and 5 or 6)
  end
  if side == FROM_LIBRARY then
    return ({ [0x01] = 2, [0x02] = 6, [0x04] = 2, [0x05] = 5, [0x12] = 9 })[kind]
  end
  if kind == 0x07 then
    return 2 + (trunks > 0 and trunks or math.min(8, left - 2))
  end
  return ({ [0x01] = 24, [0x02] = 6, [0x11] = 4 })[kind]
end

local function add_information(m, tree, address)
  tree:add(c.firmware, m(7, 1))
  tree:add(c.trunks, m(8, 1))
  tree:add_le(c.features, m(9, 4))
  tree:add_le(c.serial, m(13, 4))
  if m(8, 1):uint() >= 1 and m(8, 1):uint() <= 8 then cards[address] = m(8, 1):uint() end
end

local function add_card_message(kind, m, tree, address)
  if kind == 0x01 then
    add_information(m, tree, address)
  elseif kind == 0x02 then
    tree:add(c.trunk, m(2, 1), m(2, 1):uint() + 1)
    tree:add_le(c.register, m(3, 2))
    tree:add(c.value, m(5, 1))
  elseif kind == 0x07 then
    for i = 2, m:len() - 1 do
      tree:add(c.status, m(i, 1)):prepend_text("Trunk " .. (i - 1) .. ": ")
    end
  elseif kind == 0x11 then
    tree:add(c.trunk, m(2, 1), m(2, 1):uint() + 1)
    tree:add(c.hdlc, m(3, 1))
  end
end

local function add_library_message(kind, m, tree)
  if kind == 0x02 then
    tree:add(c.trunk, m(2, 1))
    tree:add_le(c.register, m(3, 2))
  elseif kind == 0x05 then
    tree:add_le(c.port, m(2, 2))
  elseif kind == 0x12 then
    tree:add(c.trunk, m(2, 1))
    tree:add(c.crc4, m(4, 1))
  end
end

local function add_frame(m, tree, pinfo, root, side, key)
  tree:add(c.trunk, m(2, 1))
  tree:add_le(c.length, m(3, 2))
  local last = side == FROM_CARD and 2 or 1
  local length = m:len() - 5 - last
  if length < 3 then return end
  local frame = m(5, length)
  if side == FROM_CARD then
    local item = tree:add_le(c.fcs, m(m:len() - 2, 2))
    if fcs_of(frame) ~= m(m:len() - 2, 2):le_uint() then
      item:add_proto_expert_info(bad_fcs)
      return
    end
  end
  dissect_frame(frame, pinfo, root, tree, side == FROM_LIBRARY, m(2, 1):uint(), key)
end

function control.dissector(tvb, pinfo, root)
  local side = pinfo.dst_port == CARD_PORT and FROM_LIBRARY or FROM_CARD
  local address = tostring(side == FROM_CARD and pinfo.src or pinfo.dst)
  local key = address .. "/" .. (side == FROM_CARD and pinfo.dst_port or pinfo.src_port)
  pinfo.cols.protocol = "ZELK"
  local tree = root:add(control, tvb(), "ZelkBoard control, from the " .. (side == FROM_CARD and "card" or "library"))
  local names = {}
  local at = 0
  while at < tvb:len() do
    local size = size_at(tvb, at, side, cards[address] or control.prefs.trunks)
    if size == nil or (size > 0 and at + size > tvb:len()) then
      pinfo.desegment_offset = at
      pinfo.desegment_len = size and (at + size - tvb:len()) or DESEGMENT_ONE_MORE_SEGMENT
      break
    end
    if size == 0 then
      tree:add(c.skipped, tvb(at, 1))
      at = at + 1
    else
      local m = tvb(at, size)
      local kind = m(1, 1):uint()
      local name = TYPES[side][kind]
      local branch = tree:add(control, m, name)
      branch:add(c.type, m(1, 1))
      branch:add(c.name, name):set_generated()
      names[#names + 1] = name
      if kind == 0x10 then
        add_frame(m, branch, pinfo, root, side, key)
      elseif side == FROM_CARD then
        add_card_message(kind, m, branch, address)
      else
        add_library_message(kind, m, branch)
      end
      at = at + size
    end
  end
  if #names > 0 and names[#names] ~= "D-channel frame" then pinfo.cols.info = table.concat(names, ", ") end
end

-- Pairs a packet of the card with the reply to it, as long as both sides count on.
local function note_audio(pinfo, sequence, from_card, card)
  local stream = streams[card] or { waiting = {}, first = 1, last = 0 }
  streams[card] = stream
  local note = {}
  audio_notes[pinfo.number] = note
  local side = from_card and "card" or "library"
  if stream[side] then note.gap = sequence - stream[side] - 1 end
  local is_new = not stream[side] or sequence > stream[side]
  if is_new then stream[side] = sequence end
  if from_card then
    -- The first packet asks for no reply.
    if is_new and note.gap == 0 then
      stream.last = stream.last + 1
      stream.waiting[stream.last] = { number = pinfo.number, time = pinfo.abs_ts }
    end
  elseif stream.first <= stream.last then
    local asked = stream.waiting[stream.first]
    stream.waiting[stream.first] = nil
    stream.first = stream.first + 1
    note.reply_to = asked.number
    note.reply_time = (pinfo.abs_ts - asked.time) * 1000
    audio_notes[asked.number].reply_in = pinfo.number
  end
end

function audio.dissector(tvb, pinfo, root)
  local from_card = pinfo.dst_port ~= CARD_PORT
  local sequence = tvb(2, 4):le_uint()
  if not pinfo.visited then
    note_audio(pinfo, sequence, from_card, tostring(from_card and pinfo.src or pinfo.dst))
  end
  pinfo.cols.protocol = "ZELKAUDIO"
  pinfo.cols.info = (from_card and "From the line, " or "To the line, ") .. sequence
  local tree = root:add(audio, tvb(), "ZelkBoard audio, " .. (from_card and "from the line" or "to the line"))
  tree:add_le(a.sequence, tvb(2, 4))
  tree:add(a.hint, tvb(6, 1))
  tree:add(a.frames, tvb(8), tvb:len() - 8)
  local note = audio_notes[pinfo.number] or {}
  if note.gap and note.gap ~= 0 then tree:add(a.gap, note.gap):set_generated() end
  if note.reply_in then tree:add(a.reply_in, note.reply_in):set_generated() end
  if note.reply_to then tree:add(a.reply_to, note.reply_to):set_generated() end
  if note.reply_time then tree:add(a.reply_time, note.reply_time):set_generated() end
end

local DATAGRAMS = { D = "Probe", R = "Reply", B = "Announcement" }

function discovery.dissector(tvb, pinfo, root)
  local kind = DATAGRAMS[tvb(5, 1):string()]
  pinfo.cols.protocol = "ZELKDISC"
  pinfo.cols.info = kind
  local tree = root:add(discovery, tvb(), "ZelkBoard discovery")
  tree:add(d.kind, tvb(5, 1), kind)
  if kind == "Announcement" and tvb:len() >= 22 then tree:add_le(d.serial, tvb(18, 4)) end
end

local function dissect_datagram(tvb, pinfo, root)
  local length = tvb:len()
  if length >= 6 and tvb(0, 5):string() == "ZELK " and DATAGRAMS[tvb(5, 1):string()] then
    discovery.dissector(tvb, pinfo, root)
    return true
  end
  if length >= 584 and length <= 1448 and tvb(0, 2):uint() == 0xFF55 then
    audio.dissector(tvb, pinfo, root)
    return true
  end
  return false
end

audio:register_heuristic("udp", dissect_datagram)
DissectorTable.get("tcp.port"):add(CARD_PORT, control)
