#include "host_Server.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

namespace {

// Bodies up to this size are read whole and handed over with the control
// block, as IIS reads ahead; a larger one (or one of unknown length) goes to
// the extension at once, which reads it through ReadClient as it arrives or
// refuses it unread.
constexpr uint64_t kReadAhead = 49152;
// Body bytes between the connection and the worker at most.
constexpr std::size_t kWindow = 65536;
// When the extension answers before reading all of a body, the rest is
// still read (and dropped) if it is this small, so that the answer can be
// sent; a larger rest closes the connection.
constexpr uint64_t kDrainLimit = 1 << 20;

// One request from its first line to its completion.
struct Context {
  HostServer* server = nullptr;
  MHD_Connection* connection = nullptr;
  TrackedConnection* tracked = nullptr;
  std::string rawUri;
  bool started = false;
  int refusal = 0;  // an HTTP status to answer instead of calling the extension
  bool chunked = false;
  uint64_t announced = 0;  // Content-Length
  uint64_t received = 0;   // body bytes read from the client
  std::string body;        // a small body, until the request goes to the extension
  std::shared_ptr<Flight> flight;
  bool parked = false;
  bool countedInFlight = false;
};

TrackedConnection* TrackedOf(MHD_Connection* connection) {
  const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
  return info ? static_cast<TrackedConnection*>(info->socket_context) : nullptr;
}

void NotifyConnection(void* cls, MHD_Connection* connection, void** socketContext,
                      MHD_ConnectionNotificationCode code) {
  auto* server = static_cast<HostServer*>(cls);
  if (code == MHD_CONNECTION_NOTIFY_STARTED) {
    const MHD_ConnectionInfo* fd = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    const MHD_ConnectionInfo* address = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    *socketContext = server->connections().Open(fd ? fd->connect_fd : -1, address ? address->client_addr : nullptr,
                                                ConnectionTable::NowMs());
  } else {
    server->connections().Close(static_cast<TrackedConnection*>(*socketContext));
    *socketContext = nullptr;
  }
}

// Sees the request line's target before libmicrohttpd decodes it: the
// extension must get the query string exactly as the client sent it.
// Sees the request line's target before libmicrohttpd decodes it: the
// extension must get the query string exactly as the client sent it. The
// library would then split the query into arguments of its own, some 80
// bytes each in the connection's memory, which nobody here reads: the
// query is cut off in the library's buffer once copied, so a target of
// thousands of empty arguments costs no more than its own bytes.
void* UriLog(void* cls, const char* uri, MHD_Connection* connection) {
  auto* context = new Context();
  context->server = static_cast<HostServer*>(cls);
  context->connection = connection;
  context->tracked = TrackedOf(connection);
  const std::size_t length = std::strlen(uri);
  if (length > context->server->options().maxRequestLine) {
    context->refusal = MHD_HTTP_URI_TOO_LONG;
  } else {
    context->rawUri.assign(uri, length);
  }
  // The target lies in the connection's read buffer, which the library
  // itself cuts up in place right after this call.
  if (char* question = const_cast<char*>(std::strchr(uri, '?'))) question[1] = '\0';
  return context;
}

void Completed(void* cls, MHD_Connection*, void** contextSlot, MHD_RequestTerminationCode) {
  auto* server = static_cast<HostServer*>(cls);
  auto* context = static_cast<Context*>(*contextSlot);
  if (context == nullptr) return;
  // A client that leaves while the extension still holds the request: the
  // control block stays until the extension says it is done.
  if (context->flight && !context->flight->exchange->IsDone()) {
    context->flight->handoff->Abandon();
    server->Adopt(std::move(context->flight));
  }
  if (context->countedInFlight) --server->inFlight();
  if (context->tracked) context->tracked->StartClock(ConnectionTable::NowMs());  // the next request's
  delete context;
  *contextSlot = nullptr;
}

MHD_Result QueueText(MHD_Connection* connection, unsigned status, const char* text, bool busy = false) {
  MHD_Response* response =
      MHD_create_response_from_buffer(std::strlen(text), const_cast<char*>(text), MHD_RESPMEM_PERSISTENT);
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "text/plain");
  if (busy) {
    MHD_add_response_header(response, MHD_HTTP_HEADER_RETRY_AFTER, std::to_string(RetryAfterSeconds()).c_str());
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
  }
  MHD_Result result = MHD_queue_response(connection, status, response);
  MHD_destroy_response(response);
  return result;
}

MHD_Result CollectHeader(void* cls, MHD_ValueKind, const char* key, const char* value) {
  static_cast<isapi::Headers*>(cls)->emplace_back(key, value ? value : "");
  return MHD_YES;
}

std::string RemoteAddress(MHD_Connection* connection) {
  const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
  if (info == nullptr || info->client_addr == nullptr) return "";
  char text[INET6_ADDRSTRLEN] = {};
  const sockaddr* addr = info->client_addr;
  if (addr->sa_family == AF_INET) {
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(addr)->sin_addr, text, sizeof text);
  } else if (addr->sa_family == AF_INET6) {
    inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(addr)->sin6_addr, text, sizeof text);
  }
  return text;
}

isapi::Request BuildRequest(Context& context, const char* method, bool streamed) {
  const HostOptions& options = context.server->options();
  isapi::Request request;
  request.method = method;
  request.url = options.path;
  const std::size_t question = context.rawUri.find('?');
  if (question != std::string::npos) request.queryString = context.rawUri.substr(question + 1);
  MHD_get_connection_values(context.connection, MHD_HEADER_KIND, &CollectHeader, &request.headers);
  const char* type = MHD_lookup_connection_value(context.connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_CONTENT_TYPE);
  request.contentType = type ? type : "";
  if (streamed) {
    // ISAPI's "length unknown" for a chunked body.
    request.announcedLength = context.chunked ? 0xFFFFFFFFu : context.announced;
    request.readMore = [handoff = context.flight->handoff](void* buffer, uint32_t* size) {
      return handoff->Read(buffer, size);
    };
  } else {
    request.body = std::move(context.body);
  }
  request.remoteAddr = RemoteAddress(context.connection);
  request.serverPort = std::to_string(options.port);
  request.adapterMode = options.adapter;
  return request;
}

MHD_Result QueueExtensionAnswer(Context& context) {
  Flight& flight = *context.flight;
  isapi::Response answer = flight.exchange->TakeResponse();
  if (flight.failed && answer.status == 0) {
    return QueueText(context.connection, MHD_HTTP_INTERNAL_SERVER_ERROR, "extension error\n");
  }
  MHD_Response* response =
      MHD_create_response_from_buffer(answer.body.size(), answer.body.data(), MHD_RESPMEM_MUST_COPY);
  for (const auto& [name, value] : answer.headers) MHD_add_response_header(response, name.c_str(), value.c_str());
  const unsigned status = answer.status ? static_cast<unsigned>(answer.status) : 500u;
  MHD_Result result = MHD_queue_response(context.connection, status, response);
  MHD_destroy_response(response);
  return result;
}

MHD_Result Continue(Context& context, const char* uploadData, size_t* uploadSize);

// Calls the extension. IIS mode: the call returns at once and the extension
// says later that it is done; adapter mode: one of the host's workers makes
// a synchronous call. Either way the connection waits (parked) meanwhile.
MHD_Result Dispatch(Context& context, const char* method, bool streamed) {
  HostServer& server = *context.server;
  if (context.tracked) context.tracked->StopClock();
  auto flight = std::make_shared<Flight>();
  flight->handoff = std::make_shared<Handoff>(context.connection, kWindow);
  context.flight = flight;
  if (!streamed) flight->handoff->EndBody();
  flight->exchange = std::make_unique<isapi::Exchange>(BuildRequest(context, method, streamed));
  context.countedInFlight = true;
  ++server.inFlight();
  if (server.options().adapter) {
    const bool taken = server.workers().Submit(
        [flight, &module = server.module()] {
          const DWORD status = module.HttpExtensionProc(flight->exchange->Ecb());
          flight->failed = status == HSE_STATUS_ERROR;
          flight->exchange->MarkDone();
          flight->handoff->Finish();
        },
        [flight] {  // the host stops before the call was made: 500
          flight->failed = true;
          flight->exchange->MarkDone();
          flight->handoff->Finish();
        });
    if (!taken) {
      context.flight.reset();
      return QueueText(context.connection, MHD_HTTP_SERVICE_UNAVAILABLE, "busy\n", true);
    }
  } else {
    flight->exchange->OnDone([handoff = flight->handoff] { handoff->Finish(); });
    flight->handoff->Enter();
    const DWORD status = server.module().HttpExtensionProc(flight->exchange->Ecb());
    flight->handoff->Leave();
    if (status != HSE_STATUS_PENDING) {
      flight->failed = status == HSE_STATUS_ERROR;
      flight->exchange->MarkDone();
    }
  }
  size_t none = 0;
  return Continue(context, nullptr, &none);
}

// A request whose extension call is under way: its body passed on, its
// answer sent once the extension is done, the connection parked whenever
// there is nothing to do.
MHD_Result Continue(Context& context, const char* uploadData, size_t* uploadSize) {
  Handoff& handoff = *context.flight->handoff;
  for (;;) {
    if (handoff.Done()) {
      if (*uploadSize == 0) return QueueExtensionAnswer(context);
      const bool smallRest = !context.chunked && context.announced - context.received <= kDrainLimit;
      if (!smallRest) return MHD_NO;
      context.received += *uploadSize;
      *uploadSize = 0;
      return MHD_YES;
    }
    const Handoff::Phase phase = handoff.phase();
    if (phase == Handoff::Phase::kHeaders && *uploadSize == 0) {
      if (handoff.Wanted()) {
        handoff.StartBody();
        if (context.tracked) context.tracked->StartClock(ConnectionTable::NowMs());
        return MHD_YES;  // libmicrohttpd goes on to read the body
      }
    } else if (phase != Handoff::Phase::kEnded) {
      handoff.StartBody();
      if (*uploadSize == 0) {
        handoff.EndBody();
        if (context.tracked) context.tracked->StopClock();
      } else {
        if (context.received + *uploadSize > context.server->options().maxBody) return MHD_NO;
        const std::size_t taken = handoff.Offer(uploadData, *uploadSize);
        context.received += taken;
        if (context.tracked) context.tracked->CountBody(taken);
        *uploadSize -= taken;
        if (*uploadSize == 0) return MHD_YES;
        uploadData += taken;
      }
    }
    if (handoff.Park()) {
      context.parked = true;
      if (context.tracked) context.tracked->StopClock();
      return MHD_YES;
    }
  }
}

// A request refused before the extension sees it. It is answered at once,
// before its body is read, and the connection is closed after the answer:
// nothing of a body refused for its size is read.
MHD_Result Refuse(MHD_Connection* connection, int refusal) {
  switch (refusal) {
    case MHD_HTTP_URI_TOO_LONG: return QueueText(connection, MHD_HTTP_URI_TOO_LONG, "request line too long\n");
    case MHD_HTTP_NOT_FOUND: return QueueText(connection, MHD_HTTP_NOT_FOUND, "not found\n");
    case MHD_HTTP_SERVICE_UNAVAILABLE:
      return QueueText(connection, MHD_HTTP_SERVICE_UNAVAILABLE, "busy\n", true);
    default: return QueueText(connection, MHD_HTTP_CONTENT_TOO_LARGE, "body too large\n");
  }
}

// The request's line and headers are in: refuse it, or note how its body
// comes. A large body, or one of unknown length, goes to the extension
// right away.
MHD_Result Begin(Context& context, const char* url, const char* method) {
  MHD_Connection* connection = context.connection;
  const HostOptions& options = context.server->options();
  context.started = true;
  // Over a connection limit, or arriving (on a kept-alive connection) while
  // the host stops and the extension may already be gone.
  if ((context.tracked && context.tracked->refused()) || context.server->stopping()) {
    context.refusal = MHD_HTTP_SERVICE_UNAVAILABLE;
  }
  if (context.refusal == 0 && std::strcmp(url, options.path.c_str()) != 0) context.refusal = MHD_HTTP_NOT_FOUND;
  const char* length = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_CONTENT_LENGTH);
  const char* coding = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_TRANSFER_ENCODING);
  context.chunked = coding != nullptr && length == nullptr;
  if (length) context.announced = std::strtoull(length, nullptr, 10);
  if (context.refusal == 0 && context.announced > options.maxBody) context.refusal = MHD_HTTP_CONTENT_TOO_LARGE;
  if (context.refusal != 0) return Refuse(connection, context.refusal);
  if (context.chunked || context.announced > kReadAhead) return Dispatch(context, method, true);
  return MHD_YES;
}

MHD_Result Access(void*, MHD_Connection*, const char* url, const char* method, const char*, const char* uploadData,
                  size_t* uploadSize, void** contextSlot) {
  auto* context = static_cast<Context*>(*contextSlot);
  if (context == nullptr) return MHD_NO;
  if (!context->started) return Begin(*context, url, method);
  if (context->refusal != 0) return MHD_NO;  // answered already: drop the rest
  if (context->parked) {
    context->parked = false;
    if (context->tracked && context->flight->handoff->phase() == Handoff::Phase::kBody) {
      context->tracked->StartClock(ConnectionTable::NowMs());
    }
  }
  if (context->flight) return Continue(*context, uploadData, uploadSize);
  if (*uploadSize != 0) {  // a small body, read whole before the call
    if (context->body.size() + *uploadSize > kReadAhead) return MHD_NO;
    context->body.append(uploadData, *uploadSize);
    context->received += *uploadSize;
    if (context->tracked) context->tracked->CountBody(*uploadSize);
    *uploadSize = 0;
    return MHD_YES;
  }
  return Dispatch(*context, method, false);
}

}  // namespace

HostServer::~HostServer() { Stop(); }

bool HostServer::Start(std::string* message) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(options_.port);
  if (inet_pton(AF_INET, options_.address.c_str(), &addr.sin_addr) != 1) {
    *message = "cannot listen on " + options_.address + ": not an IPv4 address";
    return false;
  }
  // A connection's memory holds its request line and headers (the query's
  // arguments are not split: UriLog). The library grows its read buffer
  // within it as a long line comes in, and clears all of it for every
  // request of a kept-alive connection: it is resident memory and CPU per
  // request, so it is the longest request line and a little room for the
  // headers and the reply's head (8 KiB), no more (twice the line cost 14% of the
  // rate of the cheapest request and 56 MB at 256 connections).
  const size_t memoryLimit = size_t{options_.maxRequestLine} + 8192;
  // libmicrohttpd's own limit is a hard ceiling above ours: between the two
  // a connection is taken only to be answered 503 (ConnectionTable).
  const unsigned ceiling = options_.maxConnections + std::max(64u, options_.maxConnections / 4);
  if (options_.adapter) workers_ = std::make_unique<Workers>(options_.adapterWorkers, size_t{32} * options_.adapterWorkers);
  const unsigned flags = MHD_USE_INTERNAL_POLLING_THREAD | MHD_ALLOW_SUSPEND_RESUME |
                         (options_.poll ? MHD_USE_POLL : MHD_USE_EPOLL) |
                         (options_.libraryLog ? MHD_USE_ERROR_LOG : 0);
  daemon_ = MHD_start_daemon(flags, options_.port, nullptr, nullptr, &Access, this, MHD_OPTION_SOCK_ADDR, &addr,
                             MHD_OPTION_URI_LOG_CALLBACK, &UriLog, this, MHD_OPTION_NOTIFY_COMPLETED, &Completed,
                             this, MHD_OPTION_NOTIFY_CONNECTION, &NotifyConnection, this,
                             MHD_OPTION_CONNECTION_TIMEOUT, options_.timeoutSeconds,
                             MHD_OPTION_CONNECTION_MEMORY_LIMIT, memoryLimit, MHD_OPTION_CONNECTION_LIMIT, ceiling,
                             MHD_OPTION_THREAD_POOL_SIZE, static_cast<unsigned>(options_.threads), MHD_OPTION_END);
  if (daemon_ == nullptr) {
    *message = "cannot listen on " + options_.address + ":" + std::to_string(options_.port);
    return false;
  }
  connections_.StartSweeper(250);
  return true;
}

uint16_t HostServer::port() const {
  const MHD_DaemonInfo* info = daemon_ ? MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT) : nullptr;
  return info ? info->port : options_.port;
}

void HostServer::Adopt(std::shared_ptr<Flight> flight) {
  std::lock_guard lock(orphansMutex_);
  std::erase_if(orphans_, [](const std::shared_ptr<Flight>& f) { return f->exchange->IsDone(); });
  orphans_.push_back(std::move(flight));
}

void HostServer::Quiesce(uint32_t graceMs) {
  if (daemon_ == nullptr) return;
  stopping_.store(true);
  // The listening socket is the caller's now; shut down at once, so that
  // the kernel stops queueing connections nobody will take, and closed
  // once the daemon's threads are gone.
  listenSocket_ = MHD_quiesce_daemon(daemon_);
  if (listenSocket_ >= 0) ::shutdown(listenSocket_, SHUT_RDWR);
  WaitIdle(graceMs);
  // Adapter mode: what has not reached the extension by now never will
  // (it is answered 500), and the calls under way end before the extension
  // is told to terminate.
  if (workers_) workers_->Stop();
}

void HostServer::WaitIdle(uint32_t ms) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (inFlight_.load() > 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

bool HostServer::Stop() {
  if (daemon_ == nullptr) return true;
  if (workers_) workers_->Stop();  // no connection may stay suspended for a worker
  // A request the extension never finished still holds its connection
  // suspended, and the library must not be stopped under it: the process
  // is left to end with it instead.
  if (inFlight_.load() > 0) return false;
  MHD_stop_daemon(daemon_);
  daemon_ = nullptr;
  if (listenSocket_ >= 0) ::close(listenSocket_);
  listenSocket_ = -1;
  connections_.StopSweeper();
  workers_.reset();
  std::lock_guard lock(orphansMutex_);
  orphans_.clear();
  return true;
}
