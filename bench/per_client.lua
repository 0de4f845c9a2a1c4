-- wrk: every request from a client of its own, so that every request stores
-- a row. The query is the script's argument, with {uid} where the uid goes:
--   wrk ... -s bench/per_client.lua URL -- 'requestid=101&uid={uid}&...'
local counter = 0
local thread_id = 0
local query = ""

function setup(thread)
  thread_id = thread_id + 1
  thread:set("id", thread_id)
end

function init(args)
  query = args[1]
end

function request()
  counter = counter + 1
  local uid = string.format("%08X-0000-4000-8000-%012X", id or 0, counter)
  local path = string.gsub(query, "{uid}", uid)
  return wrk.format("GET", "/vigilcrest/cgi/isapiClient.dll?" .. path)
end
