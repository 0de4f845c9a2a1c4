-- wrk: the soak's mix of what clients send, in turn: a registration of a
-- client of its own, its heartbeat, a settings fetch and a virus log; the
-- failures are counted and printed when it is done.
local counter = 0
local thread_id = 0
local threads = {}
local kinds = {"register", "poll", "settings", "log"}

function setup(thread)
  thread_id = thread_id + 1
  thread:set("id", thread_id)
  table.insert(threads, thread)
end

function init()
  errors = 0
  first = ""
end

function request()
  counter = counter + 1
  local kind = kinds[(counter - 1) % 4 + 1]
  local uid = string.format("%08X-0000-4000-8000-%012X", id or 0, math.floor((counter - 1) / 4))
  local q
  if kind == "register" then
    q = "requestid=101&uid=" .. uid .. "&date=20261123&time=093000&computer=SOAK-PC&platform=Linux&ip=10.0.0.7" ..
        "&program=14.0&engine=22.1&domain=WORKGROUP&hotfix=0&instdate=20261101&insttime=120000&release=14.0.1"
  elseif kind == "poll" then
    q = "requestid=207&functiontype=1&uid=" .. uid
  elseif kind == "settings" then
    q = "requestid=202&functiontype=1&uid=" .. uid .. "&release=14.0"
  else
    q = "requestid=110&functiontype=1&uid=" .. uid .. "&release=14.0.1&date=2026-11-23&time=09:30:00" ..
        "&virus=Eicar_test_file&file=eicar.com&firstaction=2"
  end
  return wrk.format("GET", "/vigilcrest/cgi/isapiClient.dll?" .. q)
end

-- Every answer of the mix is a settings text, a polling block, "1" or "1"
-- and a time; a failure is a negative code (or another HTTP status).
function response(status, headers, body)
  if status ~= 200 or body:sub(1, 1) == "-" or body == "" then
    errors = errors + 1
    if first == "" then first = status .. " " .. body:sub(1, 40) end
  end
end

function done()
  local total, example = 0, ""
  for _, thread in ipairs(threads) do
    total = total + thread:get("errors")
    if example == "" then example = thread:get("first") end
  end
  io.write(string.format("errors: %d%s\n", total, example ~= "" and (" (first: " .. example .. ")") or ""))
end
