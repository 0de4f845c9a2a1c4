-- wrk: every request from a client of its own, so that every request stores
-- a row. The query is the script's argument, with {uid} where the uid goes:
--   wrk ... -s bench/per_client.lua URL -- 'requestid=101&uid={uid}&...' [RUN]
-- RUN (default 0) keeps the uids of wrk runs side by side apart; CYCLE (default
-- none) makes the uids come round again after that many per thread, so that
-- a later run (heartbeats) can ask for the clients an earlier one registered.
local counter = 0
local thread_id = 0
local query = ""
local run = 0
local cycle = 0

function setup(thread)
  thread_id = thread_id + 1
  thread:set("id", thread_id)
end

function init(args)
  query = args[1]
  run = tonumber(args[2] or "0")
  cycle = tonumber(args[3] or "0")
end

function request()
  counter = counter + 1
  if cycle > 0 and counter > cycle then counter = 1 end
  local uid = string.format("%08X-0000-4000-8000-%012X", run * 256 + (id or 0), counter)
  local path = string.gsub(query, "{uid}", uid)
  return wrk.format("GET", "/vigilcrest/cgi/isapiClient.dll?" .. path)
end
