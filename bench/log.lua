-- wrk: a virus log (log type 1, all twelve keys) per request, each from a
-- client of its own, so that every request stores a row.
local counter = 0
local thread_id = 0

function setup(thread)
  thread_id = thread_id + 1
  thread:set("id", thread_id)
end

function request()
  counter = counter + 1
  local uid = string.format("%08X-0000-4000-8000-%012X", id or 0, counter)
  return wrk.format("GET", "/vigilcrest/cgi/isapiClient.dll?requestid=110&functiontype=1&uid=" .. uid ..
    "&release=14.0.1&date=2026-11-23&time=09:30:00&login=CORP%5Cjdoe&virus=Eicar_test_file" ..
    "&file=eicar.com&compressedfile=&directory=C%3A%5CUsers%5Cjdoe%5CDownloads%5C" ..
    "&infectionsource=BENCH-PC&firstaction=2&firststatus=0&secondaction=3&secondstatus=0")
end
