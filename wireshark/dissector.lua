-- SPDX-License-Identifier: MIT
-- dissector.lua: the Wireshark dissector of the tetherhost protocol (TCP,
-- 127.0.0.1:4001), for Wireshark's and tshark's Lua. The build puts the
-- table `vocabulary`, which wireshark/Vocabulary.cpp prints from the
-- protocol's own tables, in front of this file and installs the two as one
-- file, tetherhost.lua: the dissector can then never be paired with the
-- vocabulary of another build.
--
-- The protocol has no lengths and no message boundaries. What a side sends
-- next is known only from the conversation so far, and the two directions
-- decide each other's framing (a bit count sent by the client says how long
-- the server's read-back is). So each TCP connection is followed by one
-- coroutine that reads like the conversation, as the simulator's
-- server/Session*.cpp do: it asks for the next token, block or chunk of one
-- side and sleeps until the segments that complete it arrive. It does its
-- own reassembly across segments; an item made of several segments is shown
-- in the frame that completes it, from a reassembled buffer.
--
-- Because each side waits for the other's answer before sending again, an
-- item still incomplete when the other side speaks is over: it is shown
-- with what came, and flagged when that is less than was announced.

local V = vocabulary
local FRAME = V.frameSize
local PLUS = V.plus
local TWO32 = 4294967296
local TWO31 = 2147483648
-- Texts in summaries are cut here, as the simulator's trace cuts them.
local SHOWN = 64

local proto = Proto("tetherhost", "Tetherhost cable server protocol")

local F = {
    client = ProtoField.string("tetherhost.client", "Client name"),
    item = ProtoField.string("tetherhost.item", "Item"),
    sender = ProtoField.string("tetherhost.sender", "Sent by"),
    command = ProtoField.int32("tetherhost.command", "Command"),
    commandName = ProtoField.string("tetherhost.command.name", "Command name"),
    sub = ProtoField.int32("tetherhost.subcommand", "Sub-command"),
    subName = ProtoField.string("tetherhost.subcommand.name", "Sub-command name"),
    pattern = ProtoField.string("tetherhost.pattern", "Argument pattern"),
    token = ProtoField.string("tetherhost.token", "Token"),
    length = ProtoField.uint32("tetherhost.length", "Length on the wire"),
    argument = ProtoField.string("tetherhost.argument", "Argument"),
    index = ProtoField.uint32("tetherhost.argument.index", "Argument number"),
    integer = ProtoField.int32("tetherhost.integer", "Integer"),
    text = ProtoField.string("tetherhost.text", "Text"),
    fraction = ProtoField.double("tetherhost.fraction", "Decimal fraction"),
    ack = ProtoField.string("tetherhost.ack", "Acknowledgement"),
    irScan = ProtoField.bool("tetherhost.flags.instruction_scan", "Instruction-register scan"),
    noReadBack = ProtoField.bool("tetherhost.flags.no_read_back", "Read-back left out"),
    bits = ProtoField.int32("tetherhost.bits", "Bit count"),
    bytes = ProtoField.int32("tetherhost.bytes", "Byte count"),
    block = ProtoField.string("tetherhost.block", "Block"),
    data = ProtoField.bytes("tetherhost.data", "Data"),
    dataLength = ProtoField.uint32("tetherhost.data.length", "Data length"),
    chunk = ProtoField.uint32("tetherhost.chunk", "Chunk"),
    chunks = ProtoField.uint32("tetherhost.chunk.count", "Chunks"),
    status = ProtoField.int32("tetherhost.status", "Status"),
    reply = ProtoField.int32("tetherhost.reply", "Integer reply"),
    replyName = ProtoField.string("tetherhost.reply.name", "Reply name"),
    replyText = ProtoField.string("tetherhost.reply.text", "Text reply"),
    field = ProtoField.string("tetherhost.reply.field", "Field"),
    lock = ProtoField.string("tetherhost.lock", "Lock"),
    granted = ProtoField.bool("tetherhost.lock.granted", "Granted"),
    app = ProtoField.string("tetherhost.app", "Shared application"),
    busAddress = ProtoField.uint8("tetherhost.i2c.bus_address", "I2C bus address", base.HEX),
    plain = ProtoField.bytes("tetherhost.i2c.data", "I2C data, bit order restored"),
    fromFrame = ProtoField.framenum("tetherhost.from_frame", "Bytes from frame"),
    completedIn = ProtoField.framenum("tetherhost.completed_in", "Item completed in frame"),
    pending = ProtoField.uint32("tetherhost.pending", "Bytes waiting for the rest of their item"),
    undecoded = ProtoField.bytes("tetherhost.undecoded", "Not decoded"),
}
local fieldList = {}
for _, field in pairs(F) do fieldList[#fieldList + 1] = field end
proto.fields = fieldList

local function problem(name, text, group, severity)
    return ProtoExpert.new("tetherhost.expert." .. name, text, group, severity)
end
local E = {
    ackNotPlus = problem("ack_not_plus", "Acknowledgement is not \"" .. PLUS .. "\"", expert.group.PROTOCOL,
        expert.severity.ERROR),
    answerNotPlus = problem("answer_not_plus", "Answer is not \"" .. PLUS .. "\" (the client does not examine it)",
        expert.group.PROTOCOL, expert.severity.NOTE),
    overlong = problem("token_overlong", "Token over " .. V.maxTokenLength .. " bytes", expert.group.MALFORMED,
        expert.severity.ERROR),
    notInteger = problem("not_integer", "Integer token is not a decimal number", expert.group.MALFORMED,
        expert.severity.ERROR),
    short = problem("short_data", "Data shorter than announced", expert.group.MALFORMED, expert.severity.ERROR),
    noNul = problem("token_cut", "Token without its NUL: the other side went on", expert.group.MALFORMED,
        expert.severity.WARN),
    outOfTurn = problem("out_of_turn", "Bytes out of turn: the server sent what nothing asked for",
        expert.group.SEQUENCE, expert.severity.WARN),
    notPlusToken = problem("not_plus_token", "Expected the token \"" .. PLUS .. "\"", expert.group.PROTOCOL,
        expert.severity.ERROR),
    byteCount = problem("byte_count", "Byte count does not match the bit count", expert.group.PROTOCOL,
        expert.severity.ERROR),
    chunkNotPlus = problem("chunk_not_plus", "Read-back chunk does not begin with \"" .. PLUS .. "\"",
        expert.group.PROTOCOL, expert.severity.ERROR),
    replyNotInteger = problem("reply_not_integer", "Reply is not a decimal number", expert.group.PROTOCOL,
        expert.severity.WARN),
    refused = problem("refused", "The server refused or failed", expert.group.RESPONSE_CODE, expert.severity.NOTE),
    withheld = problem("withheld", "A lock-guarded command withheld: the client polls instead",
        expert.group.SEQUENCE, expert.severity.CHAT),
    unknown = problem("unknown", "Unknown number: nothing more is sent for it", expert.group.UNDECODED,
        expert.severity.NOTE),
    lost = problem("lost", "The conversation cannot be followed from here", expert.group.UNDECODED,
        expert.severity.ERROR),
    retransmitted = problem("retransmitted", "Bytes seen before in this direction", expert.group.SEQUENCE,
        expert.severity.NOTE),
    slot = problem("slot", "One-call slot is neither a copy of the first slot nor a zero frame",
        expert.group.PROTOCOL, expert.severity.ERROR),
    filler = problem("filler", "Fixed frame filler is not all zero", expert.group.PROTOCOL, expert.severity.WARN),
}
local expertList = {}
for _, e in pairs(E) do expertList[#expertList + 1] = e end
proto.experts = expertList

---------------------------------------------------------------- arithmetic

local function wrap32(value)
    value = value % TWO32
    if value >= TWO31 then value = value - TWO32 end
    return value
end

local function truncatingDivide(a, b)
    local q = a / b
    return q >= 0 and math.floor(q) or math.ceil(q)
end

-- (bitCount + 7) / 8 in the library's 32-bit signed arithmetic.
local function byteCountOf(bits) return truncatingDivide(wrap32(bits + 7), 8) end
local function chunkCountOf(bytes) return truncatingDivide(bytes + FRAME - 1, FRAME) end

-- The shape of one block: JTAG and generic shifts decide by the byte count,
-- pump, SSPI and I2C by the bit count.
local function shiftShape(bits)
    local bytes = byteCountOf(bits)
    return { bits = bits, byteCount = bytes, chunkCount = chunkCountOf(bytes), single = bytes <= FRAME }
end
local function transferShape(bits)
    local bytes = byteCountOf(bits)
    return { bits = bits, byteCount = bytes, chunkCount = chunkCountOf(bytes), single = bits <= V.singleBlockBits }
end

-- A 32-bit decimal number and nothing else, as the server reads its
-- arguments; nil otherwise.
local function strictInteger(text)
    if not text:match("^%-?%d+$") then return nil end
    local value = tonumber(text)
    if value == nil or value < -TWO31 or value >= TWO31 then return nil end
    return value
end

-- strtol in base 10 narrowed to an int, as the library reads replies,
-- status texts and lock answers: leading blanks, a sign, the digits up to
-- the first other character; no digits give 0.
local function leadingInteger(text)
    local sign, digits = text:match("^[ \t\n\v\f\r]*([+-]?)(%d*)")
    if digits == nil or digits == "" then return 0 end
    digits = digits:gsub("^0+", "")
    local limit = sign == "-" and "9223372036854775808" or "9223372036854775807"
    if #digits > #limit or (#digits == #limit and digits > limit) then
        -- strtol saturates at LONG_MIN / LONG_MAX; their low 32 bits remain.
        return sign == "-" and 0 or -1
    end
    local low = 0
    for digit in digits:gmatch("%d") do low = (low * 10 + tonumber(digit)) % TWO32 end
    if sign == "-" then low = (TWO32 - low) % TWO32 end
    return wrap32(low)
end

---------------------------------------------------------------- texts

-- Bytes as a field shows them: controls and bytes above ASCII as \xNN.
local function printable(text)
    return (text:gsub("[%z\1-\31\127-\255]", function(c) return string.format("\\x%02x", c:byte()) end))
end

-- A text as a summary shows it: printable, quoted, cut.
local function quoted(text)
    local shown = printable(text:sub(1, SHOWN)):gsub("[\"\\]", "\\%0")
    return "\"" .. shown .. (#text > SHOWN and "...\"" or "\"")
end

local function plural(count, word) return count .. " " .. word .. (count == 1 and "" or "s") end

local function commandName(number)
    return V.commandNames[number]
end

local function commandShape(number)
    return V.commands[number] or V.unknownCommand
end

local function subShape(number)
    return V.subCommands[number] or V.unknownSubCommand
end

local function replyMeaning(value)
    return V.serverReplies[value]
end

---------------------------------------------------------------- byte queues

-- The bytes one side has sent and no item has taken yet, segment by
-- segment, each remembering its frame and its offset in that frame.
local Queue = {}
Queue.__index = Queue

function Queue.new()
    return setmetatable({ segments = {}, first = 1, last = 0, pos = 1, size = 0, lastFrame = 0 }, Queue)
end

function Queue:push(data, frame, offset)
    if #data == 0 then return end
    self.last = self.last + 1
    self.segments[self.last] = { data = data, frame = frame, offset = offset }
    self.size = self.size + #data
    self.lastFrame = frame
end

-- The n-th buffered byte (from 1), or nil.
function Queue:byte(n)
    local k, p = self.first, self.pos
    while k <= self.last do
        local data = self.segments[k].data
        local left = #data - p + 1
        if n <= left then return data:byte(p + n - 1) end
        n = n - left
        k, p = k + 1, 1
    end
    return nil
end

-- Where the first NUL is among the first `limit` bytes (from 1), or nil.
function Queue:findNul(limit)
    local k, p, seen = self.first, self.pos, 0
    while k <= self.last and seen < limit do
        local data = self.segments[k].data
        local stop = math.min(#data, p + (limit - seen) - 1)
        local at = data:find("\0", p, true)
        if at and at <= stop then return seen + (at - p) + 1 end
        seen = seen + (stop - p + 1)
        k, p = k + 1, 1
    end
    return nil
end

-- Takes `count` buffered bytes: the bytes, and where they came from.
function Queue:take(count)
    local parts, pieces = {}, {}
    while count > 0 do
        local segment = self.segments[self.first]
        local left = #segment.data - self.pos + 1
        local length = math.min(count, left)
        parts[#parts + 1] = segment.data:sub(self.pos, self.pos + length - 1)
        pieces[#pieces + 1] = { frame = segment.frame, offset = segment.offset + self.pos - 1, length = length }
        self.pos = self.pos + length
        self.size = self.size - length
        count = count - length
        if self.pos > #segment.data then
            self.segments[self.first] = nil
            self.first, self.pos = self.first + 1, 1
        end
    end
    return table.concat(parts), pieces
end

-- How many bytes of `frame` are still buffered.
function Queue:waitingOf(frame)
    local count = 0
    for k = self.first, self.last do
        local segment = self.segments[k]
        if segment.frame == frame then
            count = count + #segment.data - (k == self.first and self.pos - 1 or 0)
        end
    end
    return count
end

---------------------------------------------------------------- records

-- A record is one item of the conversation: a token, an acknowledgement, a
-- block, a chunk. It keeps what the tree shows of it, so that the frame can
-- be shown again without following the conversation a second time.
local function addField(record, field, value, at)
    record.fields[#record.fields + 1] = { field = field, value = value, at = at }
end

local function whole(record) return { 0, record.length } end

local function flag(record, e, text)
    record.experts[#record.experts + 1] = { expert = e, text = text }
end

---------------------------------------------------------------- the conversation

local other = { client = "server", server = "client" }

local Conversation = {}
Conversation.__index = Conversation

-- Control leaves the conversation's coroutine through this error value
-- when it cannot be followed any further.
local LOST = {}

function Conversation.new(clientEnd)
    local c = setmetatable({
        clientEnd = clientEnd,
        q = { client = Queue.new(), server = Queue.new() },
        nextSeq = {},
        replies = 0,
    }, Conversation)
    c.co = coroutine.create(function() c:run() end)
    return c
end

function Conversation:label()
    if self.command == nil then return nil end
    if self.sub ~= nil then return self.command .. "/" .. self.sub end
    return tostring(self.command)
end

function Conversation:record(side, name, raw, pieces)
    return {
        side = side, name = name, raw = raw, pieces = pieces, length = #raw,
        command = self.command, sub = self.sub, fields = {}, experts = {},
    }
end

-- Hands a record to the frame being dissected, with its summary.
function Conversation:emit(record, summary)
    local label = self:label()
    record.summary = label and (label .. ": " .. summary) or summary
    local here = true
    for _, piece in ipairs(record.pieces) do
        if piece.frame ~= self.frame then
            here = false
            self.completed[piece.frame] = self.frame
        end
    end
    if here and record.length > 0 then
        -- All of it in this frame's segment: the frame's own bytes show it.
        record.offset = record.pieces[1].offset
        record.raw = nil
    end
    record.pieces = here and nil or record.pieces
    self.out[#self.out + 1] = record
end

-- The server's bytes that arrived while it was the client's turn.
function Conversation:dropOutOfTurn()
    local q = self.q.server
    if q.size == 0 then return end
    local raw, pieces = q:take(q.size)
    local record = self:record("server", "out-of-turn", raw, pieces)
    addField(record, F.undecoded, nil, whole(record))
    flag(record, E.outOfTurn, "Out of turn: " .. plural(#raw, "byte") .. " from the server")
    self:emit(record, "out of turn, " .. plural(#raw, "byte") .. " from the server")
end

-- True when `side` has begun an item and the other side has spoken since:
-- the item ended there.
function Conversation:wentOn(side)
    local mine, theirs = self.q[side], self.q[other[side]]
    return mine.size > 0 and theirs.size > 0 and theirs.lastFrame > mine.lastFrame
end

-- Waits for `count` bytes of `side`; returns how many there are to take
-- (fewer when the other side went on first).
function Conversation:await(side, count)
    while true do
        local q = self.q[side]
        if q.size >= count then return count end
        if side == "client" and q.size == 0 then self:dropOutOfTurn() end
        if self:wentOn(side) then return q.size end
        coroutine.yield()
    end
end

-- Waits for a token of `side`: the bytes to take and how it ended ("nul",
-- "overlong" or "cut").
function Conversation:awaitToken(side)
    while true do
        local q = self.q[side]
        local nul = q:findNul(FRAME)
        if nul then return nul, "nul" end
        if q.size >= FRAME then return FRAME, "overlong" end
        if side == "client" and q.size == 0 then self:dropOutOfTurn() end
        if self:wentOn(side) then return q.size, "cut" end
        coroutine.yield()
    end
end

-- Ends the conversation as the server would end the connection: later
-- bytes are shown undecoded.
function Conversation:lose(record, reason, summary)
    flag(record, E.lost, "Not followed from here: " .. reason)
    self:emit(record, summary)
    self.lost = reason
    error(LOST)
end

-- One token of `side`: its text (without the NUL) and its record, not yet
-- handed on. A token without a NUL within a frame ends the conversation.
function Conversation:token(side, name)
    local count, ending = self:awaitToken(side)
    local raw, pieces = self.q[side]:take(count)
    local record = self:record(side, name, raw, pieces)
    local text = ending == "nul" and raw:sub(1, -2) or raw
    record.text = text
    record.textAt = { 0, #text }
    addField(record, F.token, printable(text), record.textAt)
    addField(record, F.length, #raw)
    if ending == "overlong" then
        flag(record, E.overlong, "No NUL within " .. FRAME .. " bytes: a token holds at most " .. V.maxTokenLength)
        self:lose(record, "a token over " .. V.maxTokenLength .. " bytes",
            name .. ": " .. plural(#raw, "byte") .. " without a NUL")
    elseif ending == "cut" then
        flag(record, E.noNul, "The " .. name .. " token ends without a NUL after " .. plural(#raw, "byte"))
    end
    return text, record
end

-- `count` raw bytes of `side`, and their record, not yet handed on; fewer
-- when the other side went on before they all came.
function Conversation:bytes(side, name, count)
    local got = self:await(side, count)
    local raw, pieces = self.q[side]:take(got)
    local record = self:record(side, name, raw, pieces)
    addField(record, F.length, got)
    if got < count then
        flag(record, E.short, string.format("%s: %d of the %d bytes announced", name, got, count))
    end
    return raw, record
end

-- The context of a data item: the transfer's bit and byte counts.
local function addShape(record, shape)
    addField(record, F.bits, shape.bits)
    addField(record, F.bytes, shape.byteCount)
end

-- The server's answer to a frame: "+" and NUL. `strict`: the client fails
-- the call unless its first byte is "+".
function Conversation:ack(name, strict)
    local text, record = self:token("server", name)
    addField(record, F.ack, printable(text), record.textAt)
    if strict and text:sub(1, 1) ~= PLUS then
        flag(record, E.ackNotPlus, "Acknowledgement " .. quoted(text) .. ": the client fails the call")
    elseif text ~= PLUS then
        flag(record, E.answerNotPlus, "Answer " .. quoted(text))
    end
    self:emit(record, name .. " " .. quoted(text))
end

-- A client token that must be "+": the go token, a lock or reply request.
function Conversation:plusToken(name, summary)
    local text, record = self:token("client", name)
    if text ~= PLUS then
        flag(record, E.notPlusToken, "The " .. name .. " token is " .. quoted(text))
        self:lose(record, "expected the " .. name .. " token", summary .. " " .. quoted(text))
    end
    self:emit(record, summary)
end

function Conversation:go() self:plusToken("go", "go") end

-- An integer argument frame and its acknowledgement. `argument` names it
-- ("arg", "flags", "bits", ...), `index` numbers the plain ones.
function Conversation:integer(argument, index, describe, strict)
    local text, record = self:token("client", argument)
    addField(record, F.argument, argument)
    if index then addField(record, F.index, index) end
    local value = strictInteger(text)
    local name = index and (argument .. " " .. index) or argument
    local shown = index and (name .. ":") or name
    if value == nil then
        flag(record, E.notInteger, "The " .. name .. " token " .. quoted(text) .. " is not a decimal number")
        self:lose(record, "an integer argument that is not a number", shown .. " " .. quoted(text))
    end
    addField(record, F.integer, value, record.textAt)
    if describe then describe(record, value) end
    self:emit(record, shown .. " " .. value .. (record.note or ""))
    self:ack("ack", strict ~= false)
    return value
end

function Conversation:textArgument(argument, index, strict)
    local text, record = self:token("client", argument)
    addField(record, F.argument, argument)
    if index then addField(record, F.index, index) end
    addField(record, F.text, printable(text), record.textAt)
    self:emit(record, (index and (argument .. " " .. index .. ":") or argument) .. " " .. quoted(text))
    self:ack("ack", strict)
end

-- The lock request ("+") and the server's verdict.
function Conversation:lockRequest(lock)
    self:plusToken("lock", "lock request (" .. lock .. " lock)")
    local text, record = self:token("server", "lock")
    local value = leadingInteger(text)
    addField(record, F.lock, lock)
    addField(record, F.integer, value, record.textAt)
    addField(record, F.granted, value == 1)
    if value ~= 1 then flag(record, E.refused, "The " .. lock .. " lock is refused: " .. quoted(text)) end
    self:emit(record, "lock answer " .. quoted(text) .. (value == 1 and " (granted)" or " (refused)"))
end

-- A data block of the client: `count` bytes on the wire, of which `data`
-- are data (the JTAG shift sends one zero byte more).
function Conversation:block(name, block, shape, count, data)
    local raw, record = self:bytes("client", name, count)
    addField(record, F.block, block)
    addShape(record, shape)
    local held = math.min(#raw, data)
    if held > 0 then addField(record, F.data, nil, { 0, held }) end
    addField(record, F.dataLength, held)
    self:emit(record, block .. " block, " .. plural(#raw, "byte"))
    return raw:sub(1, held), record
end

-- A chunked block of the client: chunks `first` to `total`, `byteCount`
-- bytes from chunk `first` on, each sent whole (`padded`, the JTAG shift)
-- or at its true length, and each acknowledged. Returns the first two
-- chunks (the one-call shift tells its later slots apart by them).
function Conversation:chunks(block, shape, byteCount, padded, first, total)
    local kept = {}
    for i = first, total do
        local length = math.min(FRAME, byteCount - (i - first) * FRAME)
        local raw, record = self:bytes("client", "chunk", padded and FRAME or length)
        addField(record, F.block, block)
        addShape(record, shape)
        addField(record, F.chunk, i)
        addField(record, F.chunks, total)
        local held = math.min(#raw, length)
        if held > 0 then addField(record, F.data, nil, { 0, held }) end
        addField(record, F.dataLength, held)
        self:emit(record, string.format("%s chunk %d of %d, %s", block, i, total, plural(#raw, "byte")))
        if i - first < 2 then kept[#kept + 1] = raw end
        self:ack("ack", true)
    end
    return kept
end

-- A block that travels whole or in chunks at their true length (generic
-- shift, pump, SSPI, I2C).
function Conversation:transferBlock(shape)
    if shape.single then
        self:block("block", "data", shape, shape.byteCount, shape.byteCount)
    else
        self:chunks("data", shape, shape.byteCount, false, 1, shape.chunkCount)
    end
end

-- The data the server returns: one block of byteCount bytes (one zero
-- byte when there are none), or chunks, each asked for with a go token.
-- `framed` chunks begin with "+" and carry up to 1023 data bytes.
function Conversation:readBack(shape, framed)
    if shape.single then
        local raw, record = self:bytes("server", "read-back", math.max(shape.byteCount, 1))
        addShape(record, shape)
        local held = math.min(#raw, math.max(shape.byteCount, 0))
        if held > 0 then addField(record, F.data, nil, { 0, held }) end
        addField(record, F.dataLength, held)
        self:emit(record, "read-back, " .. plural(#raw, "byte"))
        return
    end
    local payload = framed and V.framedPayload or FRAME
    local lead = framed and #PLUS or 0
    for i = 1, shape.chunkCount do
        local offset = (i - 1) * payload
        local length = offset < shape.byteCount and math.min(payload, shape.byteCount - offset) or 0
        local raw, record = self:bytes("server", "read-back", lead + length)
        addShape(record, shape)
        addField(record, F.chunk, i)
        addField(record, F.chunks, shape.chunkCount)
        if framed and raw:sub(1, lead) ~= PLUS then
            flag(record, E.chunkNotPlus, "Read-back chunk " .. i .. " begins with " .. quoted(raw:sub(1, 1)))
        end
        local held = math.max(#raw - lead, 0)
        if held > 0 then addField(record, F.data, nil, { lead, held }) end
        addField(record, F.dataLength, held)
        self:emit(record, string.format("read-back chunk %d of %d, %s", i, shape.chunkCount, plural(#raw, "byte")))
        self:go()
    end
end

-- The end of a pump or generic shift: the read-back, or the answer to the
-- single block, or the acknowledgement after the last chunk.
function Conversation:finishTransfer(shape, withReadBack, framed)
    if withReadBack ~= 0 then
        self:readBack(shape, framed)
    elseif shape.single then
        self:ack("answer", false)
    else
        self:ack("ack", true)
    end
end

---------------------------------------------------------------- commands

-- Ends the conversation where no item stands to carry the reason.
function Conversation:stop(reason)
    self:lose(self:record("client", "undecoded", "", {}), reason, "not followed from here")
end

function Conversation:genericShift()
    self:integer("flags")
    local bits = self:integer("bits")
    local shape = shiftShape(bits)
    local sent = self:integer("bytes", nil, function(record, value)
        if value ~= shape.byteCount then
            flag(record, E.byteCount, string.format("%d bytes announced for %d bits, which make %d", value, bits,
                shape.byteCount))
        end
    end)
    local withReadBack = self:integer("read-back")
    if sent ~= shape.byteCount then self:stop("a byte count that does not match the bit count") end
    if shape.byteCount <= 0 then return end
    self:transferBlock(shape)
    self:finishTransfer(shape, withReadBack, false)
end

function Conversation:pumpData()
    local bits = self:integer("bits")
    self:integer("mode")
    local withReadBack = self:integer("read-back")
    local shape = transferShape(bits)
    if shape.single and shape.byteCount <= 0 then return end
    self:transferBlock(shape)
    self:finishTransfer(shape, withReadBack, true)
end

function Conversation:sspiTransfer(withWrite, withReadBack)
    self:integer("address")
    local bits = self:integer("bits")
    self:integer("options")
    local shape = transferShape(bits)
    if withWrite ~= 0 then
        if shape.single and shape.byteCount <= 0 then return end
        self:transferBlock(shape)
    end
    if withReadBack == 0 then
        self:ack("ack", true)
    else
        self:readBack(shape, false)
    end
end

-- The device byte of an I2C transfer travels bit-reversed.
local function reversed(byte)
    local result = 0
    for _ = 1, 8 do
        result = result * 2 + byte % 2
        byte = math.floor(byte / 2)
    end
    return result
end

function Conversation:i2cTransfer(withWrite, withReadBack)
    self:integer("address")
    self:integer("device", nil, function(record, value)
        if value >= 0 and value <= 255 then
            local bus = reversed(value)
            addField(record, F.busAddress, bus)
            record.note = string.format(" (bus address 0x%02X)", bus)
        end
    end)
    local bits = self:integer("bits")
    self:integer("last")
    local shape = transferShape(bits)
    if withWrite ~= 0 then
        if shape.single and shape.byteCount <= 0 then return end
        if shape.single then
            local data, record = self:block("block", "data", shape, shape.byteCount, shape.byteCount)
            local plain = data:gsub(".", function(c) return string.char(reversed(c:byte())) end)
            if #plain > 0 then record.restored = plain end
        else
            self:chunks("data", shape, shape.byteCount, false, 1, shape.chunkCount)
        end
    end
    if withReadBack == 0 then
        self:ack("ack", true)
    else
        self:readBack(shape, true)
    end
end

function Conversation:transfers(shape, transfer)
    if shape.readOnlyFirst then transfer(self, 0, 1) end
    transfer(self, shape.withWrite, shape.withReadBack)
end

function Conversation:sharedApps()
    local raw, record = self:bytes("client", "block", FRAME)
    local list = raw:match("^[^%z]*")
    local count = 0
    for start, name in list:gmatch("()([^;]*);") do
        addField(record, F.app, printable(name), { start - 1, #name })
        count = count + 1
    end
    addField(record, F.text, printable(list), { 0, #list })
    self:emit(record, "application list " .. quoted(list) .. ", " .. plural(count, "name"))
    self:ack("ack", false)
end

-- Sub-command 12: the JTAG shift.
function Conversation:jtagShift()
    local flags = self:integer("flags", nil, function(record, value)
        local ir = bit32.band(value, V.shiftFlag.instructionScan) ~= 0
        addField(record, F.irScan, ir)
        addField(record, F.noReadBack, bit32.band(value, V.shiftFlag.noReadBack) ~= 0)
        record.note = ir and " (IR scan)" or " (DR scan)"
    end)
    local bits = self:integer("bits")
    local second = self:integer("second")
    local third = self:integer("third")
    local shape = shiftShape(bits)
    if shape.single and shape.byteCount < 0 then return end
    local blocks = { { "tdi", true }, { "expected", second ~= 0 }, { "mask", third ~= 0 } }
    for _, block in ipairs(blocks) do
        if block[2] then
            if shape.single then
                -- Each block is followed by one zero byte and answered.
                self:block(block[1], block[1], shape, shape.byteCount + 1, shape.byteCount)
                self:ack("answer", false)
            else
                self:chunks(block[1], shape, shape.byteCount, true, 1, shape.chunkCount)
            end
        end
    end
    self:go()
    local text, record = self:token("server", "status")
    local status = leadingInteger(text)
    addField(record, F.status, status, record.textAt)
    if strictInteger(text) == nil then
        flag(record, E.replyNotInteger, "Status " .. quoted(text) .. " is read as " .. status)
    end
    local meaning = status < 0 and replyMeaning(status)
    if meaning then
        addField(record, F.replyName, meaning.name)
        flag(record, E.refused, "Status " .. status .. " (" .. meaning.name .. "): " .. meaning.meaning)
    end
    self:emit(record, "status " .. quoted(text) .. (meaning and (" (" .. meaning.name .. ")") or ""))
    local readBack = bit32.band(second, 1) ~= 0 and status >= 0 and bit32.band(flags, V.shiftFlag.noReadBack) == 0
    if readBack then self:readBack(shape, true) end
end

-- A fixed 1024-byte frame of the one-call shift: its text up to the first
-- NUL, acknowledged (the acknowledgement is not examined).
function Conversation:fixedFrame(name)
    local raw, record = self:bytes("client", name, FRAME)
    local text = raw:match("^[^%z]*")
    record.text = text
    addField(record, F.token, printable(text), { 0, #text })
    return text, record
end

function Conversation:fixedInteger(name)
    local text, record = self:fixedFrame(name)
    addField(record, F.argument, name)
    local value = strictInteger(text)
    if value == nil then
        flag(record, E.notInteger, "The " .. name .. " frame " .. quoted(text) .. " is not a decimal number")
        self:lose(record, "a one-call integer frame that is not a number", name .. " " .. quoted(text))
    end
    addField(record, F.integer, value, { 0, #text })
    self:emit(record, name .. " " .. value .. ", fixed frame")
    self:ack("ack", false)
    return value
end

-- A later slot's first frame: a zero frame or the first chunk of a copy,
-- told apart by content.
function Conversation:slot() return self:bytes("client", "slot", FRAME) end

local function allZero(bytes) return not bytes:find("[^%z]") end

-- The one-call JTAG shift, once its "44" frame is known to be a fixed frame:
-- every token is a 1024-byte frame, then three data slots.
function Conversation:oneCallShift()
    local subText, subRecord = self:fixedFrame("sub-command")
    local number = strictInteger(subText)
    if number ~= V.sub.jtagShift then
        self:lose(subRecord, "a one-call frame that is not a shift", "sub-command " .. quoted(subText))
    end
    subRecord.sub = number
    addField(subRecord, F.sub, number, { 0, #subText })
    addField(subRecord, F.subName, V.subCommandNames[number])
    self:emit(subRecord, "sub-command " .. number .. " (" .. V.subCommandNames[number] .. "), fixed frame")
    self.sub = number
    self:ack("ack", false)
    self:fixedInteger("flags")
    local bits = self:fixedInteger("bits")
    local shape = shiftShape(bits)
    if bits <= V.oneCallSingleFrameBits then
        -- Three frames: the first block's first bytes and two zero frames.
        local _, tdi = self:bytes("client", "tdi", FRAME)
        addShape(tdi, shape)
        addField(tdi, F.block, "tdi")
        addField(tdi, F.data, nil, whole(tdi))
        self:emit(tdi, "tdi, fixed frame")
        self:ack("ack", false)
        for number = 2, 3 do
            local raw, record = self:slot()
            addShape(record, shape)
            self:emit(record, "slot " .. number .. (allZero(raw) and ", zero frame" or ", fixed frame"))
            self:ack("ack", false)
        end
        return
    end
    -- Within 7 of INT_MAX the byte count wraps: no such shift exists.
    if shape.byteCount <= 2 * FRAME then self:stop("a one-call bit count out of range") end
    local head = self:chunks("tdi", shape, shape.byteCount, false, 1, shape.chunkCount)
    local firstChunk, secondChunk = head[1], head[2]
    local count = shape.chunkCount
    local function finishSlot(record, number, text, chunk)
        addShape(record, shape)
        addField(record, F.block, "slot " .. number)
        if chunk then
            addField(record, F.chunk, chunk)
            addField(record, F.chunks, count)
        end
        self:emit(record, "slot " .. number .. ", " .. text)
        -- The client checks the "+" of a copy's chunks only.
        self:ack("ack", chunk ~= nil)
    end
    local function copyFrom(number, first)
        self:chunks("slot " .. number, shape, shape.byteCount - (first - 1) * FRAME, false, first, count)
    end
    local function neither(record, number)
        flag(record, E.slot, "Slot " .. number .. " is neither a copy nor a zero frame")
        self:lose(record, "a one-call slot neither a copy nor a zero frame", "slot " .. number)
    end
    -- A later slot is a copy of the first (in the same chunks) or a zero
    -- frame, never a copy after a zero frame; they are told apart by
    -- content, as the server tells them: a copy begins with the first
    -- slot's first chunk, or, when that is all zero, goes on with its second.
    for number = 2, 3 do
        local raw, record = self:slot()
        if not allZero(firstChunk) then
            if raw == firstChunk then
                finishSlot(record, number, "copy of the first slot, chunk 1 of " .. count, 1)
                copyFrom(number, 2)
            elseif allZero(raw) then
                finishSlot(record, number, "zero frame")
                if number == 2 then
                    local _, third = self:slot()
                    finishSlot(third, 3, "zero frame")
                end
                return
            else
                neither(record, number)
            end
        else
            finishSlot(record, number, "zero frame or a copy's first chunk")
            if number == 3 then return end
            local nextRaw, nextRecord = self:slot()
            if secondChunk ~= nil and not allZero(secondChunk) and nextRaw == secondChunk then
                finishSlot(nextRecord, number, "copy of the first slot, chunk 2 of " .. count, 2)
                copyFrom(number, 3)
            elseif allZero(nextRaw) then
                finishSlot(nextRecord, 3, "zero frame")
                return
            else
                neither(nextRecord, number)
            end
        end
    end
end

-- The rest of a "44" frame that turned out to be a fixed 1024-byte frame:
-- zero filler, the one-call shift's mark. The client sent it with the
-- token, in one send, so the server's answer to the token may come before
-- all of it: the filler is waited for whole, as the server does.
function Conversation:filler(count)
    while self.q.client.size < count do coroutine.yield() end
    local raw, record = self:bytes("client", "filler", count)
    if not allZero(raw) then flag(record, E.filler, "The filler of the fixed frame is not all zero") end
    self:emit(record, "frame filler, " .. plural(#raw, "byte"))
end

-- Command 44: a sub-command and its arguments, or the one-call shift.
function Conversation:jtagInterface(fillerLeft)
    if fillerLeft == nil then
        -- Not known yet: an empty sub-command token is the start of the
        -- zero filler of a fixed "44" frame.
        self:awaitToken("client")
        if self.q.client:byte(1) == 0 then fillerLeft = FRAME - (#tostring(self.command) + 1) end
    end
    if fillerLeft ~= nil then
        if fillerLeft > 0 then self:filler(fillerLeft) end
        return self:oneCallShift()
    end
    local text, record = self:token("client", "sub-command")
    local number = strictInteger(text)
    if number == nil then
        flag(record, E.notInteger, "The sub-command " .. quoted(text) .. " is not a decimal number")
        self:lose(record, "a sub-command that is not a number", "sub-command " .. quoted(text))
    end
    record.sub = number
    local shape = subShape(number)
    local name = V.subCommandNames[number]
    addField(record, F.sub, number, record.textAt)
    if name then addField(record, F.subName, name) end
    addField(record, F.pattern, shape.pattern)
    if shape.pattern == "Unknown" then flag(record, E.unknown, "Sub-command " .. number .. " is unknown") end
    self:emit(record, "sub-command " .. number .. (name and (" (" .. name .. ")") or "")
        .. (shape.pattern == "Unknown" and " (unknown)" or ""))
    self.sub = number
    self:ack("ack", true)
    local pattern = shape.pattern
    if pattern == "Ints" then
        for i = 1, shape.count do self:integer("arg", i) end
    elseif pattern == "Texts" then
        for i = 1, shape.count do self:textArgument("text", i, true) end
    elseif pattern == "IntTextInt" then
        self:integer("arg", 1)
        self:textArgument("text", 2, true)
        self:integer("arg", 3)
    elseif pattern == "IntThenEmptyText" then
        self:integer("arg", 1)
    elseif pattern == "FractionStrict" or pattern == "FractionFixed" then
        local fraction, fractionRecord
        if pattern == "FractionStrict" then
            fraction, fractionRecord = self:token("client", "fraction")
        else
            fraction, fractionRecord = self:fixedFrame("fraction")
        end
        local value = fraction:match("^%-?%d+%.%d+$") and tonumber(fraction)
        if value then
            addField(fractionRecord, F.fraction, value, { 0, #fraction })
        else
            flag(fractionRecord, E.notInteger, "The fraction " .. quoted(fraction) .. " is not a decimal fraction")
        end
        self:emit(fractionRecord, "fraction " .. quoted(fraction)
            .. (pattern == "FractionFixed" and ", fixed frame" or ""))
        self:ack("ack", pattern == "FractionStrict")
    elseif pattern == "JtagShift" then
        self:jtagShift()
    end
end

-- A command frame ("44") and everything the command sends before its
-- reply requests.
function Conversation:commandFrame(text, record)
    local number = strictInteger(text)
    if number == nil then
        flag(record, E.notInteger, "The command " .. quoted(text) .. " is not a decimal number")
        self:lose(record, "a command that is not a number", "command " .. quoted(text))
    end
    self.command, self.sub, self.replies = nil, nil, 0
    record.command = number
    local shape = commandShape(number)
    local name = commandName(number)
    addField(record, F.command, number, record.textAt)
    if name then addField(record, F.commandName, name) end
    addField(record, F.pattern, shape.marshal)
    if number == V.command.poll then
        flag(record, E.withheld, "Poll: the client does not hold both locks")
    elseif shape.marshal == "Unknown" then
        flag(record, E.unknown, "Command " .. number .. " is unknown")
    end
    -- The one-call shift sends "44" as a fixed 1024-byte frame: its zero
    -- filler comes with the token, ahead of the server's answer.
    local filler
    if number == V.command.jtagInterface and self.q.client.size > 0 and self.q.client:byte(1) == 0 then
        filler = FRAME - #record.raw
    end
    self:emit(record, "command " .. number .. (name and (" (" .. name .. ")") or "")
        .. (shape.marshal == "Unknown" and number ~= V.command.poll and " (unknown)" or "")
        .. (filler and ", fixed frame" or ""))
    self.command = number
    if filler then
        self:filler(filler)
        filler = 0
    end
    self:ack("answer", false)
    local marshal = shape.marshal
    if marshal == "TextsLenient" or marshal == "TextsStrict" then
        for i = 1, shape.count do self:textArgument("text", i, marshal == "TextsStrict") end
    elseif marshal == "Ints" then
        for i = 1, shape.count do self:integer("arg", i) end
    elseif marshal == "HeaderTrailer" then
        for i = 1, shape.count, 2 do
            self:integer("arg", i)
            self:textArgument("text", i + 1, true)
        end
    elseif marshal == "OpenSession" then
        self:textArgument("text", 1, false)
        self:textArgument("text", 2, false)
        -- The option slots count from 0, as the library's table does.
        for slot = 0, V.openSessionOptions - 1 do self:integer("option", slot, nil, false) end
        self:lockRequest("session")
    elseif marshal == "CommandLock" then
        self:lockRequest("command")
    elseif marshal == "GenericShift" then
        self:genericShift()
    elseif marshal == "SharedApps" then
        self:sharedApps()
    elseif marshal == "PumpData" then
        self:pumpData()
    elseif marshal == "JtagInterface" then
        self:jtagInterface(filler)
    elseif marshal == "I2C" then
        self:transfers(shape, Conversation.i2cTransfer)
    elseif marshal == "SSPI" then
        self:transfers(shape, Conversation.sspiTransfer)
    end
end

-- A reply request ("+" between commands) and the reply: the command's
-- integer reply first, then its text reply; empty when none is left.
function Conversation:request(record)
    self.replies = self.replies + 1
    self:emit(record, "reply request")
    local text, reply = self:token("server", "reply")
    local integerReply = self.replies == 1 and self.command ~= nil and commandShape(self.command).integerReply
    if integerReply then
        local value = leadingInteger(text)
        addField(reply, F.reply, value, reply.textAt)
        if strictInteger(text) == nil then
            flag(reply, E.replyNotInteger, "Reply " .. quoted(text) .. " is read as " .. value)
        end
        local meaning = value < 0 and replyMeaning(value)
        if meaning then
            addField(reply, F.replyName, meaning.name)
            flag(reply, E.refused, "Reply " .. value .. " (" .. meaning.name .. "): " .. meaning.meaning)
        end
        self:emit(reply, "integer reply " .. quoted(text) .. (meaning and (" (" .. meaning.name .. ")") or ""))
        return
    end
    addField(reply, F.replyText, printable(text), reply.textAt)
    -- As the library's list reader splits it: every ";" ends a field, and
    -- what follows the last one is a field when it is not empty.
    local start = 1
    while true do
        local stop = text:find(";", start, true)
        if stop == nil then break end
        addField(reply, F.field, printable(text:sub(start, stop - 1)), { start - 1, stop - start })
        start = stop + 1
    end
    if start <= #text then addField(reply, F.field, printable(text:sub(start)), { start - 1, #text - start + 1 }) end
    self:emit(reply, text == "" and "text reply (empty)" or ("text reply " .. quoted(text)))
end

function Conversation:run()
    local name, record = self:token("client", "name")
    self.clientName = printable(name)
    addField(record, F.client, self.clientName, record.textAt)
    self:emit(record, "introduction " .. quoted(name))
    self:ack("answer", false)
    while true do
        local text, frame = self:token("client", "command")
        if text == PLUS then
            frame.name = "request"
            self:request(frame)
        else
            self:commandFrame(text, frame)
        end
    end
end

-- Everything after a protocol error the server ends the connection for, or
-- after bytes missing from the capture.
function Conversation:undecoded()
    for _, side in ipairs({ "client", "server" }) do
        local q = self.q[side]
        if q.size > 0 then
            local raw, pieces = q:take(q.size)
            local record = self:record(side, "undecoded", raw, pieces)
            addField(record, F.undecoded, nil, whole(record))
            record.command, record.sub = nil, nil
            local label = self.command
            self.command = nil
            self:emit(record, "not decoded (" .. self.lost .. "), " .. plural(#raw, "byte"))
            self.command = label
        end
    end
end

-- Feeds one segment's new bytes to the conversation: the records the frame
-- completes, and what of the frame waits for more.
function Conversation:feed(side, data, frame, offset)
    self.out, self.frame, self.completed = {}, frame, {}
    self.q[side]:push(data, frame, offset)
    if self.lost == nil then
        local ok, failure = coroutine.resume(self.co)
        if not ok and failure ~= LOST then
            self.lost = "a fault of the dissector"
            error(failure, 0)
        end
    end
    if self.lost ~= nil then self:undecoded() end
    return {
        records = self.out,
        client = self.clientName,
        pending = self.q[side]:waitingOf(frame),
    }, self.completed
end

-- A segment that cannot be followed (bytes missing before it, or cut by
-- the capture): the conversation is given up from here.
function Conversation:giveUp(side, frame, offset, data, reason)
    local first = self.lost == nil
    self.lost = self.lost or reason
    local shown, completed = self:feed(side, data, frame, offset)
    if first and shown.records[1] then flag(shown.records[1], E.lost, "Not followed from here: " .. reason) end
    return shown, completed
end

---------------------------------------------------------------- Wireshark

local tcpStream = Field.new("tcp.stream")
local tcpSeq = Field.new("tcp.seq")
local tcpCompleteness = Field.new("tcp.completeness")
-- The bit of tcp.completeness that says the connection's SYN was captured.
local SYN_SEEN = 1

local conversations = {}
-- What each frame shows: its records, the client's name, the bytes that
-- wait, and the frame that completes them.
local frames = {}

function proto.init()
    conversations = {}
    frames = {}
end

local function endpoint(address, port) return tostring(address) .. "|" .. port end

-- The value of the last occurrence of a field in this frame.
local function lastValue(extractor)
    local all = { extractor() }
    local field = all[#all]
    return field and field.value
end

local function follow(tvb, pinfo)
    -- TCP's fields are there only when the first pass builds a tree (not
    -- in tshark -2's first pass, for one); without them a connection is
    -- told by its addresses and ports, and its segments are taken as they
    -- come.
    local stream = lastValue(tcpStream)
    local seq = lastValue(tcpSeq)
    local here, there = endpoint(pinfo.src, pinfo.src_port), endpoint(pinfo.dst, pinfo.dst_port)
    local key = stream or (here < there and (here .. " " .. there) or (there .. " " .. here))
    local c = conversations[key]
    local begun
    if c == nil then
        -- Only from its introduction can a connection be followed: where
        -- its commands begin cannot be told from the middle.
        local completeness = lastValue(tcpCompleteness)
        if completeness ~= nil and bit32.band(completeness, SYN_SEEN) == 0 then
            begun = "the capture begins inside the connection, after its start"
        end
        -- The server is the end on the port this dissector was called for
        -- (4001, or a port given with Decode As); failing that, the client
        -- is the end that speaks first.
        local port = pinfo.match_uint
        local clientEnd = here
        if pinfo.src_port == port and pinfo.dst_port ~= port then clientEnd = there end
        c = Conversation.new(clientEnd)
        conversations[key] = c
    end
    local side = here == c.clientEnd and "client" or "server"
    local reported, captured = tvb:reported_len(), tvb:len()
    local ahead = 0
    if seq ~= nil then ahead = wrap32(seq - (c.nextSeq[side] or seq)) end
    local shown, completed
    if begun then
        c.nextSeq[side] = seq and (seq + reported) % TWO32
        shown, completed = c:giveUp(side, pinfo.number, 0, tvb:raw(), begun)
    elseif ahead > 0 then
        shown, completed = c:giveUp(side, pinfo.number, 0, tvb:raw(),
            plural(ahead, "byte") .. " missing from the capture before frame " .. pinfo.number)
    elseif -ahead >= reported then
        return { retransmitted = true, records = {}, client = c.clientName, pending = 0 }
    else
        local skip = -ahead
        if seq ~= nil then c.nextSeq[side] = (seq + reported) % TWO32 end
        if captured < reported then
            shown, completed = c:giveUp(side, pinfo.number, skip, tvb:raw(skip, captured - skip),
                "frame " .. pinfo.number .. " cut short by the capture")
        else
            shown, completed = c:feed(side, tvb:raw(skip, captured - skip), pinfo.number, skip)
        end
    end
    for earlier, by in pairs(completed) do
        if frames[earlier] then frames[earlier].completedIn = by end
    end
    return shown
end

local function show(shown, tvb, pinfo, root)
    local summaries = {}
    local hasName = false
    for _, record in ipairs(shown.records) do
        if record.name == "name" then hasName = true end
    end
    if shown.client and not hasName then root:add(F.client, shown.client):set_generated() end
    for _, record in ipairs(shown.records) do
        local range
        if record.length > 0 then
            if record.raw == nil then
                range = tvb(record.offset, record.length)
            else
                range = ByteArray.new(record.raw, true):tvb("Reassembled " .. record.name)()
            end
        end
        local item = range and root:add(F.item, range, record.name) or root:add(F.item, record.name)
        item:set_text(record.summary)
        -- Not always the frame's sender: a pipelined client's bytes can be
        -- decoded once the server's answer to what came before them is in.
        item:add(F.sender, record.side):set_generated()
        if record.command ~= nil and record.name ~= "command" then
            item:add(F.command, record.command):set_generated()
            local name = commandName(record.command)
            if name then item:add(F.commandName, name):set_generated() end
        end
        if record.sub ~= nil and record.name ~= "sub-command" then
            item:add(F.sub, record.sub):set_generated()
            local name = V.subCommandNames[record.sub]
            if name then item:add(F.subName, name):set_generated() end
        end
        for _, field in ipairs(record.fields) do
            local added
            if field.at and range then
                local part = field.at[2] > 0 and range:range(field.at[1], field.at[2]) or range:range(field.at[1], 0)
                if field.value == nil then added = item:add(field.field, part)
                else added = item:add(field.field, part, field.value) end
            elseif field.value ~= nil then
                added = item:add(field.field, field.value)
                added:set_generated()
            end
        end
        if record.restored then
            item:add(F.plain, ByteArray.new(record.restored, true):tvb("I2C data, bit order restored")())
        end
        if record.pieces then
            local seen = {}
            for _, piece in ipairs(record.pieces) do
                if piece.frame ~= pinfo.number and not seen[piece.frame] then
                    seen[piece.frame] = true
                    item:add(F.fromFrame, piece.frame):set_generated()
                end
            end
        end
        for _, e in ipairs(record.experts) do item:add_proto_expert_info(e.expert, e.text) end
        summaries[#summaries + 1] = record.summary
    end
    if shown.retransmitted then
        local item = root:add(F.item, tvb(), "retransmission")
        item:set_text("retransmitted bytes, decoded before")
        item:add_proto_expert_info(E.retransmitted)
        summaries[#summaries + 1] = "retransmitted bytes"
    end
    if shown.pending > 0 then
        root:add(F.pending, shown.pending):set_generated()
        if shown.completedIn then root:add(F.completedIn, shown.completedIn):set_generated() end
        summaries[#summaries + 1] = "[" .. plural(shown.pending, "byte") .. " of an item continued later]"
    end
    pinfo.cols.info:set(table.concat(summaries, ", "))
end

function proto.dissector(tvb, pinfo, tree)
    local length = tvb:reported_len()
    if length == 0 then return 0 end
    pinfo.cols.protocol:set("tetherhost")
    local shown = frames[pinfo.number]
    if shown == nil and not pinfo.visited then
        shown = follow(tvb, pinfo)
        frames[pinfo.number] = shown
    end
    local root = tree:add(proto, tvb())
    if shown then show(shown, tvb, pinfo, root) end
    return length
end

local tcpPorts = DissectorTable.get("tcp.port")
tcpPorts:add(V.serverPort, proto)
tcpPorts:add_for_decode_as(proto)
