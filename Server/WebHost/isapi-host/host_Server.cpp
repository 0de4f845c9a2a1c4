#include "host_Server.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

namespace {

// One request's state, from its first line to its completion.
struct Context {
  HostServer* server = nullptr;
  MHD_Connection* connection = nullptr;
  std::string rawUri;
  bool started = false;
  bool dispatched = false;
  int refusal = 0;  // an HTTP status to answer instead of calling the extension
  std::string body;
  std::unique_ptr<isapi::Exchange> exchange;
  bool countedInFlight = false;
};

// Sees the request line's target before libmicrohttpd decodes it: the
// extension must get the query string exactly as the client sent it.
void* UriLog(void* cls, const char* uri, MHD_Connection* connection) {
  auto* context = new Context();
  context->server = static_cast<HostServer*>(cls);
  context->connection = connection;
  const std::size_t length = std::strlen(uri);
  if (length > context->server->options().maxRequestLine) {
    context->refusal = MHD_HTTP_URI_TOO_LONG;
  } else {
    context->rawUri.assign(uri, length);
  }
  return context;
}

void Completed(void*, MHD_Connection*, void** contextSlot, MHD_RequestTerminationCode) {
  auto* context = static_cast<Context*>(*contextSlot);
  if (context == nullptr) return;
  if (context->countedInFlight) --context->server->inFlight();
  delete context;
  *contextSlot = nullptr;
}

MHD_Result QueueText(MHD_Connection* connection, unsigned status, const char* text) {
  MHD_Response* response =
      MHD_create_response_from_buffer(std::strlen(text), const_cast<char*>(text), MHD_RESPMEM_PERSISTENT);
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "text/plain");
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

isapi::Request BuildRequest(Context& context, const char* method) {
  const HostOptions& options = context.server->options();
  isapi::Request request;
  request.method = method;
  request.url = options.path;
  const std::size_t question = context.rawUri.find('?');
  if (question != std::string::npos) request.queryString = context.rawUri.substr(question + 1);
  MHD_get_connection_values(context.connection, MHD_HEADER_KIND, &CollectHeader, &request.headers);
  const char* type = MHD_lookup_connection_value(context.connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_CONTENT_TYPE);
  request.contentType = type ? type : "";
  request.body = std::move(context.body);
  request.remoteAddr = RemoteAddress(context.connection);
  request.serverPort = std::to_string(options.port);
  request.adapterMode = options.adapter;
  return request;
}

MHD_Result QueueExtensionAnswer(Context& context) {
  isapi::Response answer = context.exchange->TakeResponse();
  MHD_Response* response =
      MHD_create_response_from_buffer(answer.body.size(), answer.body.data(), MHD_RESPMEM_MUST_COPY);
  for (const auto& [name, value] : answer.headers) MHD_add_response_header(response, name.c_str(), value.c_str());
  const unsigned status = answer.status ? static_cast<unsigned>(answer.status) : 500u;
  MHD_Result result = MHD_queue_response(context.connection, status, response);
  MHD_destroy_response(response);
  return result;
}

// Calls the extension. IIS mode: the connection waits (suspended) until the
// extension says it is done; adapter mode: the call itself waits.
MHD_Result Dispatch(Context& context, const char* method) {
  HostServer& server = *context.server;
  context.dispatched = true;
  context.countedInFlight = true;
  ++server.inFlight();
  context.exchange = std::make_unique<isapi::Exchange>(BuildRequest(context, method));
  if (server.options().adapter) {
    DWORD status = server.module().HttpExtensionProc(context.exchange->Ecb());
    context.exchange->MarkDone();
    if (status == HSE_STATUS_ERROR && context.exchange->TakeResponse().status == 0) {
      return QueueText(context.connection, MHD_HTTP_INTERNAL_SERVER_ERROR, "extension error\n");
    }
    return QueueExtensionAnswer(context);
  }
  MHD_Connection* connection = context.connection;
  MHD_suspend_connection(connection);
  context.exchange->OnDone([connection] { MHD_resume_connection(connection); });
  DWORD status = server.module().HttpExtensionProc(context.exchange->Ecb());
  if (status != HSE_STATUS_PENDING) context.exchange->MarkDone();
  return MHD_YES;
}

// A request refused before the extension sees it. It is answered at once,
// before its body is read, and the connection is closed after the answer:
// nothing of a body refused for its size is read.
MHD_Result Refuse(MHD_Connection* connection, int refusal) {
  switch (refusal) {
    case MHD_HTTP_URI_TOO_LONG: return QueueText(connection, MHD_HTTP_URI_TOO_LONG, "request line too long\n");
    case MHD_HTTP_NOT_FOUND: return QueueText(connection, MHD_HTTP_NOT_FOUND, "not found\n");
    default: return QueueText(connection, MHD_HTTP_CONTENT_TOO_LARGE, "body too large\n");
  }
}

MHD_Result Access(void*, MHD_Connection* connection, const char* url, const char* method, const char*,
                  const char* uploadData, size_t* uploadSize, void** contextSlot) {
  auto* context = static_cast<Context*>(*contextSlot);
  if (context == nullptr) return MHD_NO;
  const HostOptions& options = context->server->options();
  if (!context->started) {
    context->started = true;
    if (context->refusal == 0 && std::strcmp(url, options.path.c_str()) != 0) context->refusal = MHD_HTTP_NOT_FOUND;
    const char* length = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_CONTENT_LENGTH);
    if (context->refusal == 0 && length && std::strtoull(length, nullptr, 10) > options.maxBody) {
      context->refusal = MHD_HTTP_CONTENT_TOO_LARGE;
    }
    return context->refusal != 0 ? Refuse(connection, context->refusal) : MHD_YES;
  }
  if (context->refusal != 0) return MHD_NO;  // answered already: drop the rest
  if (*uploadSize != 0) {
    if (context->body.size() + *uploadSize > options.maxBody) {
      // A body of no announced length (chunked) that grows past the limit:
      // the library answers only before a body is read or once it is whole,
      // so the connection is closed without an answer rather than read on.
      context->refusal = MHD_HTTP_CONTENT_TOO_LARGE;
      std::string().swap(context->body);
      return MHD_NO;
    }
    context->body.append(uploadData, *uploadSize);
    *uploadSize = 0;
    return MHD_YES;
  }
  if (!context->dispatched) return Dispatch(*context, method);
  return QueueExtensionAnswer(*context);  // resumed: the extension is done
}

}  // namespace

HostServer::~HostServer() {
  if (daemon_) MHD_stop_daemon(daemon_);
}

bool HostServer::Start(std::string* message) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(options_.port);
  if (inet_pton(AF_INET, options_.address.c_str(), &addr.sin_addr) != 1) {
    *message = "cannot listen on " + options_.address + ": not an IPv4 address";
    return false;
  }
  // The library keeps a record of about 80 bytes for every argument of the
  // query (a target of L bytes may hold L / 2 of them) in the connection's
  // memory, beside the request line and the headers; when that runs out it
  // cannot even answer, and the client waits for the idle time-out. The
  // memory is reserved, not touched, until a request needs it.
  const size_t memoryLimit = size_t{48} * options_.maxRequestLine + 65536;
  const unsigned connections = options_.maxConnections;
  const unsigned perAddress = options_.maxPerAddress;
  const unsigned timeout = options_.timeoutSeconds;
  unsigned flags = MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_ERROR_LOG;
  if (options_.adapter) {
    // An adapter calls the extension on the connection's own thread; poll,
    // not select, so that descriptors past 1024 work, and small stacks, so
    // that thousands of idle connections cost little.
    flags |= MHD_USE_THREAD_PER_CONNECTION | MHD_USE_POLL;
    daemon_ = MHD_start_daemon(flags, options_.port, nullptr, nullptr, &Access, this, MHD_OPTION_SOCK_ADDR, &addr,
                               MHD_OPTION_URI_LOG_CALLBACK, &UriLog, this, MHD_OPTION_NOTIFY_COMPLETED, &Completed,
                               nullptr, MHD_OPTION_CONNECTION_TIMEOUT, timeout, MHD_OPTION_CONNECTION_MEMORY_LIMIT,
                               memoryLimit, MHD_OPTION_CONNECTION_LIMIT, connections,
                               MHD_OPTION_PER_IP_CONNECTION_LIMIT, perAddress, MHD_OPTION_THREAD_STACK_SIZE,
                               size_t{512} << 10, MHD_OPTION_END);
  } else {
    flags |= MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME;
    daemon_ = MHD_start_daemon(flags, options_.port, nullptr, nullptr, &Access, this, MHD_OPTION_SOCK_ADDR, &addr,
                               MHD_OPTION_URI_LOG_CALLBACK, &UriLog, this, MHD_OPTION_NOTIFY_COMPLETED, &Completed,
                               nullptr, MHD_OPTION_CONNECTION_TIMEOUT, timeout, MHD_OPTION_CONNECTION_MEMORY_LIMIT,
                               memoryLimit, MHD_OPTION_CONNECTION_LIMIT, connections,
                               MHD_OPTION_PER_IP_CONNECTION_LIMIT, perAddress, MHD_OPTION_THREAD_POOL_SIZE,
                               static_cast<unsigned>(options_.threads), MHD_OPTION_END);
  }
  if (daemon_ == nullptr) {
    *message = "cannot listen on " + options_.address + ":" + std::to_string(options_.port);
    return false;
  }
  return true;
}

void HostServer::Quiesce(uint32_t graceMs) {
  if (daemon_ == nullptr) return;
  MHD_quiesce_daemon(daemon_);
  WaitIdle(graceMs);
}

void HostServer::WaitIdle(uint32_t ms) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (inFlight_.load() > 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

void HostServer::Stop() {
  if (daemon_ == nullptr) return;
  MHD_stop_daemon(daemon_);
  daemon_ = nullptr;
}
