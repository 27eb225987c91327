-- SPDX-License-Identifier: MIT
-- Wire constants written out in the dissector's Lua, each of which the
-- check must report; this comment's 1024 and "+" are not.
local frame = 1024
local ack = "+"
