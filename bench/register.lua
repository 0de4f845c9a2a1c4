-- wrk: a start registration per request, each for a client of its own, so
-- that every request inserts a row.
local counter = 0
local thread_id = 0

function setup(thread)
  thread_id = thread_id + 1
  thread:set("id", thread_id)
end

function request()
  counter = counter + 1
  local uid = string.format("%08X-0000-4000-8000-%012X", id or 0, counter)
  return wrk.format("GET", "/vigilcrest/cgi/isapiClient.dll?requestid=101&uid=" .. uid ..
    "&date=20261122&time=093000&computer=BENCH-PC&platform=Linux&ip=10.0.0.7&program=14.0" ..
    "&engine=22.1&domain=WORKGROUP&hotfix=0&instdate=20261101&insttime=120000&release=14.0.1")
end
