/*
 * The C++ face of the library: owners instead of handles, lambdas instead of functions with user data, std::optional
 * instead of results, exceptions instead of forgotten errors. Header-only, over the C functions; C++17 or newer.
 *
 *   zal::Client client;
 *   client.service("greeter").method("hello", [](const zal::Request& request, zal::Response& response) {
 *     response.data().add("greeting", "hello " + request.data().get<std::string>("name").value_or("you"));
 *   });
 *   client.start();
 *
 * Ownership. Object, Event, Watch, EventLoop and Client own what they stand for: they can be moved, not copied, and
 * what they own is released once. A Node, a Service and a std::string_view are borrowed: valid as long as the owner
 * above.
 *
 * Handlers run on several threads at once, so they are called as const: a `mutable` lambda does not compile. What they
 * capture may be movable only. It lives until the handler is replaced or removed, or its client or loop is destroyed,
 * and then until the last call of it has ended; what is captured by reference must live as long.
 *
 * Exceptions. An Error that leaves the handler of a method or dataset becomes the error of its answer, any other
 * exception an error with code 500 and its what(); the source of the error is the name of the service. An exception
 * that leaves another handler, whom no caller waits for, is logged at level 5. The functions here throw std::bad_alloc
 * when the library finds no memory. Without exceptions (-fno-exceptions) what would throw calls std::abort instead.
 *
 * What is not here is a C function away: handle() gives what it takes.
 */
#ifndef ZAL_HPP
#define ZAL_HPP

#include <zal/zal.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

/// The C++ face of the library.
namespace zal {

/// What a handler throws to answer with an error.
class Error : public std::runtime_error {
 public:
  /// A code of 0 would be no error, and counts as 500.
  Error(std::int32_t code, const std::string& text) : std::runtime_error{text}, code_{code != 0 ? code : 500} {}
  /// The code of the answer's error.
  [[nodiscard]] std::int32_t code() const noexcept { return code_; }

 private:
  std::int32_t code_;
};

/// A name, key or path on its way to C: a text with a terminator, borrowed for the call.
class Text {
 public:
  Text(const char* text) noexcept : text_{text} {}                  ///< null where the C function allows it
  Text(const std::string& text) noexcept : text_{text.c_str()} {}   ///< read up to its first NUL
  [[nodiscard]] const char* get() const noexcept { return text_; }  ///< as C takes it

 private:
  const char* text_;
};

/// Bytes, which an object holds as base64; borrowed for the call.
struct Blob {
  const void* bytes;   ///< null only when there are none
  std::uint32_t size;  ///< in bytes
};

// Not for callers.
namespace detail {

template <class Failure>
[[noreturn]] void raise([[maybe_unused]] const Failure& failure) {
#if defined(__cpp_exceptions)
  throw failure;
#else
  std::abort();
#endif
}

/// Runs a body, and gives the code and the text of what it throws to `onFailure`. Nothing leaves: C calls it.
template <class Body, class OnFailure>
void attempt(const Body& body, [[maybe_unused]] const OnFailure& onFailure) noexcept {
#if defined(__cpp_exceptions)
  try {
    body();
  } catch (const Error& failure) {
    onFailure(failure.code(), failure.what());
  } catch (const std::exception& failure) {
    onFailure(500, failure.what());
  } catch (...) {
    onFailure(500, "exception of an unknown type");
  }
#else
  body();
#endif
}

/// Releases what a function of the library made.
template <auto Function>
struct Release {
  template <class T>
  void operator()(T* resource) const noexcept {
    Function(resource);
  }
};

/// A record that the library made, or std::bad_alloc.
template <class Handle>
[[nodiscard]] Handle made(Handle handle) {
  if (handle == nullptr) raise(std::bad_alloc{});
  return handle;
}

/// How many handlers the present thread is in.
inline thread_local int callDepth = 0;

struct InCall {
  InCall() noexcept { ++callDepth; }
  ~InCall() { --callDepth; }
  InCall(const InCall&) = delete;
  InCall& operator=(const InCall&) = delete;
};

/// Ends a client or loop. Its teardown waits for its handlers, so that one that lets go of the last owner must not do
/// it: the loop thread is stopped then, and a thread of its own does the rest when the handler has returned. Where no
/// thread can be made, the process ends, as it does for one that joins itself.
struct End {
  template <class Runtime>
  void operator()(Runtime* runtime) const noexcept {
    if (callDepth == 0) {
      delete runtime;
    } else {
      runtime->stop();
      std::thread{[runtime] { delete runtime; }}.detach();
    }
  }
};

template <class... Arguments>
struct Callable {
  Callable() = default;
  virtual ~Callable() = default;
  Callable(const Callable&) = delete;
  Callable& operator=(const Callable&) = delete;
  virtual void call(Arguments... arguments) const = 0;
};

template <class Function, class... Arguments>
class CallableOf final : public Callable<Arguments...> {
  static_assert(std::is_invocable_v<const Function&, Arguments...>,
                "the handler does not take these arguments, or is a mutable lambda");

 public:
  template <class From>
  explicit CallableOf(std::in_place_t, From&& function) : function_{std::forward<From>(function)} {}
  void call(Arguments... arguments) const override { static_cast<void>(function_(arguments...)); }

 private:
  Function function_;
};

/// A handler that is replaced. Its captures may do anything when they end, so it ends where no lock is held.
using Replaced = std::shared_ptr<const void>;

/// Where the library finds a handler, which may be changed while it runs: a call keeps the one that it began with.
template <class... Arguments>
class Slot {
 public:
  template <class Function>
  Replaced set(Function&& function) {
    using Callable = CallableOf<std::decay_t<Function>, Arguments...>;
    return exchange(std::make_shared<const Callable>(std::in_place, std::forward<Function>(function)));
  }
  Replaced clear() { return exchange(nullptr); }
  [[nodiscard]] std::shared_ptr<const Callable<Arguments...>> get() const {
    const std::lock_guard<std::mutex> hold{mutex_};
    return callable_;
  }

 private:
  Replaced exchange(std::shared_ptr<const Callable<Arguments...>> callable) {
    const std::lock_guard<std::mutex> hold{mutex_};
    callable_.swap(callable);
    return callable;
  }

  mutable std::mutex mutex_;
  std::shared_ptr<const Callable<Arguments...>> callable_;
};

/// Calls what is in a slot, where nobody waits for an answer.
template <class... Arguments>
void notify(const Slot<Arguments...>& slot, const char* kind, Arguments... arguments) noexcept {
  const InCall inCall;
  attempt(
      [&] {
        if (const auto callable = slot.get()) callable->call(arguments...);
      },
      [kind](std::int32_t, const char* text) {
        Log_PrintMessage(ZAL_LOG_ERROR, "zal.hpp", __LINE__, kind, "unexpected failure: %s\n", text);
      });
}

/// Reads with one of the typed getters.
template <class T, class Stored>
[[nodiscard]] std::optional<T> read(int (*get)(ZAL_ObjectHandle, const char*, Stored*), ZAL_ObjectHandle handle,
                                    const char* path) {
  Stored value{};
  return get(handle, path, &value) == 1 ? std::optional<T>{static_cast<T>(value)} : std::nullopt;
}

template <class>
inline constexpr bool isNone = false;

}  // namespace detail

class Object;

// ---- Data ----------------------------------------------------------------------------------------------------------

/// A place in a JSON tree, borrowed: what is added there and read from there. zal_object.h tells of member paths and of
/// the filters that answers are under.
///
/// A Node may be null: of a member that nobody asked for, or that is not there. Whatever is added to a null Node goes
/// nowhere, and nothing is found in it.
///
/// Threads: a tree is used by one thread at a time.
class Node {
 public:
  /// A null node.
  Node() noexcept = default;
  /// Stands for a handle, which is borrowed.
  explicit Node(ZAL_ObjectHandle handle) noexcept : handle_{handle} {}

  /// Whether it is not null.
  explicit operator bool() const noexcept { return handle_ != nullptr; }
  /// For the C functions.
  [[nodiscard]] ZAL_ObjectHandle handle() const noexcept { return handle_; }

  /// Whether an object or array of that key would be let into the answer: to be asked before it is worked out.
  [[nodiscard]] bool wants(Text key) const noexcept { return ZAL_Object_CheckFilter(handle_, key.get(), 0) == 1; }
  /// Whether a text, number or boolean of that key would be let into the answer.
  [[nodiscard]] bool wantsLeaf(Text key) const noexcept { return ZAL_Object_CheckFilter(handle_, key.get(), 1) == 1; }

  /// Adds a text. This and the next ones give the node itself, for the next member.
  Node add(Text key, const char* text) const noexcept {
    ZAL_Object_AddString(handle_, key.get(), text);
    return *this;
  }
  /// Adds a text, up to its first NUL.
  Node add(Text key, const std::string& text) const noexcept { return add(key, text.c_str()); }
  /// Adds a text, up to its first NUL.
  Node add(Text key, std::string_view text) const { return add(key, std::string{text}); }
  /// Adds a boolean or a number; of a fraction, as ZAL_Object_AddDouble does, a text of six decimals.
  template <class Number, std::enable_if_t<std::is_arithmetic_v<Number>, int> = 0>
  Node add(Text key, Number value) const noexcept {
    if constexpr (std::is_same_v<Number, bool>) {
      ZAL_Object_AddBool(handle_, key.get(), value ? 1 : 0);
    } else if constexpr (std::is_floating_point_v<Number>) {
      ZAL_Object_AddDouble(handle_, key.get(), static_cast<double>(value));
    } else if constexpr (std::is_signed_v<Number>) {
      ZAL_Object_AddInt64(handle_, key.get(), static_cast<std::int64_t>(value));
    } else {
      ZAL_Object_AddUint64(handle_, key.get(), static_cast<std::uint64_t>(value));
    }
    return *this;
  }
  /// Adds null.
  Node add(Text key, std::nullptr_t) const noexcept {
    ZAL_Object_AddNull(handle_, key.get());
    return *this;
  }
  /// Adds bytes as a text of base64.
  Node add(Text key, Blob blob) const noexcept {
    ZAL_Object_AddBlob(handle_, key.get(), blob.bytes, blob.size);
    return *this;
  }
  /// Moves a document here, or what the filter leaves of it; empty objects and arrays vanish.
  inline Node add(Text key, Object document) const noexcept;
  /// Adds an empty object, and gives it; null when nobody asked for it.
  Node addObject(Text key) const noexcept { return Node{ZAL_Object_AddObject(handle_, key.get())}; }
  /// Adds an empty array, and gives it; null when nobody asked for it.
  Node addArray(Text key) const noexcept { return Node{ZAL_Object_AddArray(handle_, key.get())}; }

  /// Appends a text to an array. This and the next ones give the array itself, for the next element.
  Node append(Text text) const noexcept {
    ZAL_Array_AddString(handle_, text.get());
    return *this;
  }
  /// Appends a boolean or a number to an array.
  template <class Number, std::enable_if_t<std::is_arithmetic_v<Number>, int> = 0>
  Node append(Number value) const noexcept {
    if constexpr (std::is_same_v<Number, bool>) {
      ZAL_Array_AddBool(handle_, value ? 1 : 0);
    } else {
      ZAL_Array_AddNumber(handle_, static_cast<double>(value));
    }
    return *this;
  }
  /// Appends an empty object to an array, and gives it.
  Node appendObject() const noexcept { return Node{ZAL_Array_AddObject(handle_)}; }
  /// Appends an empty array to an array, and gives it.
  Node appendArray() const noexcept { return Node{ZAL_Array_AddArray(handle_)}; }

  /// Reads the member at a path such as "ports[2]:name", when it is there and is a T: bool, an integer of 32 or 64
  /// bits, float, double, std::string, std::string_view (borrowed from the tree) or Object (a view of the member, in a
  /// tree that stays its owner's). What can be read as what is told in zal_object.h.
  template <class T>
  [[nodiscard]] std::optional<T> get(Text path) const;
  /// Reads the elements of the array at a path, those of them that are a T. The time grows with the square of their
  /// number.
  template <class T>
  [[nodiscard]] std::vector<T> all(const std::string& path) const;

  /// Prints JSON without white space; an empty text for a null node.
  [[nodiscard]] std::string dump() const {
    if (handle_ == nullptr) return {};
    const std::unique_ptr<char, detail::Release<std::free>> text{ZAL_Object_DumpOutput(handle_)};
    return text ? std::string{text.get()} : std::string{};
  }

 protected:
  ZAL_ObjectHandle handle_ = nullptr;  ///< borrowed here, owned by an Object
};

/// Owns a JSON document, or a view of a member of another one.
class Object : public Node {
 public:
  /// Makes an empty object.
  Object() : Object{detail::made(ZAL_Object_Create())} {}
  /// Owns a handle from here on: a document's or a view's, or null.
  explicit Object(ZAL_ObjectHandle handle) noexcept : Node{handle} {}
  Object(Object&& other) noexcept : Node{other.release()} {}  ///< leaves the other one null
  /// Takes what the other one owns, and leaves it null.
  Object& operator=(Object&& other) noexcept {
    const Object old{std::exchange(handle_, other.release())};
    return *this;
  }
  ~Object() { ZAL_Array_Destroy(handle_); }  // of any kind

  /// Makes an empty array.
  [[nodiscard]] static Object array() { return Object{detail::made(ZAL_Array_Create())}; }
  /// Parses JSON; a null Object, and a log line, when the text is none.
  [[nodiscard]] static Object parse(std::string_view text) noexcept {
    return Object{ZAL_Object_CreateFromJson(text.data(), text.size())};
  }

  /// Gives the handle to whoever destroys it from here on.
  [[nodiscard]] ZAL_ObjectHandle release() noexcept { return std::exchange(handle_, nullptr); }
};

inline Node Node::add(Text key, Object document) const noexcept {
  // Taken or refused: to destroy a handle that another tree has taken does nothing.
  ZAL_Object_AppendObject(handle_, key.get(), document.handle());
  return *this;
}

template <class T>
std::optional<T> Node::get(Text path) const {
  if (handle_ == nullptr) return std::nullopt;
  const char* const name = path.get();
  if constexpr (std::is_same_v<T, Object>) {
    Object view{ZAL_Object_GetObject(handle_, name)};
    return view ? std::optional<Object>{std::move(view)} : std::nullopt;
  } else if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, std::string_view>) {
    const char* const text = ZAL_Object_GetString(handle_, name);
    return text != nullptr ? std::optional<T>{text} : std::nullopt;
  } else if constexpr (std::is_same_v<T, bool>) {
    return detail::read<T>(ZAL_Object_GetBool, handle_, name);
  } else if constexpr (std::is_floating_point_v<T>) {
    return detail::read<T>(ZAL_Object_GetDouble, handle_, name);
  } else if constexpr (std::is_integral_v<T> && sizeof(T) == sizeof(std::int64_t)) {
    return std::is_signed_v<T> ? detail::read<T>(ZAL_Object_GetInt64, handle_, name)
                               : detail::read<T>(ZAL_Object_GetUint64, handle_, name);
  } else if constexpr (std::is_integral_v<T> && sizeof(T) == sizeof(std::int32_t)) {
    return std::is_signed_v<T> ? detail::read<T>(ZAL_Object_GetInt32, handle_, name)
                               : detail::read<T>(ZAL_Object_GetUint32, handle_, name);
  } else {
    static_assert(detail::isNone<T>, "members are not read as this type");
  }
}

template <class T>
std::vector<T> Node::all(const std::string& path) const {
  std::vector<T> elements;
  const Object array{handle_ != nullptr ? ZAL_Object_GetArray(handle_, path.c_str()) : nullptr};
  std::uint32_t size = 0;
  if (array) ZAL_Array_GetSize(array.handle(), &size);
  for (std::uint32_t i = 0; i < size; ++i) {
    if (auto element = get<T>(path + '[' + std::to_string(i) + ']')) elements.push_back(std::move(*element));
  }
  return elements;
}

// ---- Messages ------------------------------------------------------------------------------------------------------

/// What a client sends: an answer or an event. Its data is made when it is first asked for.
class Message {
 public:
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  /// The object that is sent, to be filled.
  [[nodiscard]] Node data() { return content(ZAL_TelemetryObject_Create); }
  /// The array that is sent in place of an object, to be filled.
  [[nodiscard]] Node array() { return content(ZAL_TelemetryArray_Create); }
  /// Replaces all data by a ready-made document; not by a view of one.
  void setData(Object document) noexcept { data_ = std::move(document); }
  /// Sends bytes, as base64, in place of the data.
  void setPayload(Blob blob) const noexcept { ZAL_Message_SetPayload(handle_, blob.bytes, blob.size); }
  /// Sets the version that is printed; 0 prints none.
  void setVersion(std::uint32_t version) const noexcept { ZAL_Message_SetVersion(handle_, version); }

  /// For the C functions. It has its data only when it is sent.
  [[nodiscard]] ZAL_MessageHandle handle() const noexcept { return handle_; }

 protected:
  explicit Message(ZAL_MessageHandle handle) noexcept : handle_{handle} {}              ///< borrows
  Message(Message&& other) noexcept : Message{std::exchange(other.handle_, nullptr)} {  ///< leaves the other one null
    data_ = std::move(other.data_);
  }
  ~Message() = default;
  /// Gives the data to the message.
  ZAL_MessageHandle complete() noexcept {
    if (data_) ZAL_Message_SetData(handle_, data_.release());
    return handle_;
  }

  ZAL_MessageHandle handle_;  ///< borrowed here, owned by an Event

 private:
  Node content(ZAL_ObjectHandle (*create)(ZAL_MessageHandle)) {
    if (!data_) data_ = Object{detail::made(create(handle_))};
    return data_;
  }

  Object data_{nullptr};
};

/// An event, to be given to Client::send or Service::send.
class Event : public Message {
 public:
  /// Names the event; beyond 255 characters the name is cut.
  explicit Event(Text name) : Message{detail::made(ZAL_Message_Create())} { ZAL_Message_SetName(handle_, name.get()); }
  Event(Event&& other) noexcept = default;  ///< leaves the other one null
  ~Event() { ZAL_Message_Destroy(handle_); }

  /// Sets the text that travels beside the event, of 15 characters at most.
  void setOptionalParam(Text text) const noexcept { ZAL_Message_SetOptionalParam(handle_, text.get()); }
  /// Gives the message to whoever destroys it from here on.
  [[nodiscard]] ZAL_MessageHandle release() noexcept {
    complete();
    return std::exchange(handle_, nullptr);
  }
};

/// What a handler answers with. Valid during its call.
class Response : public Message {
 public:
  /// Wraps the response of a call, and names who reports its errors; both are borrowed.
  Response(ZAL_MessageHandle response, const char* source) noexcept : Message{response}, source_{source} {}

  /// Answers with an error in place of all data, as an Error that is thrown does.
  void setError(std::int32_t code, Text text) const noexcept {
    ZAL_Message_SetError(handle_, code, source_, text.get());
  }
  /// Gives the data to the response; called when the handler has returned.
  void finish() noexcept { complete(); }

 private:
  const char* source_;
};

/// What a handler is asked. Valid during its call.
class Request {
 public:
  /// Wraps the request of a call, which is borrowed.
  explicit Request(ZAL_MessageHandle request) noexcept : handle_{request} {}
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  /// The name of the method or dataset.
  [[nodiscard]] std::string_view name() const noexcept { return ZAL_Message_GetName(handle_); }
  /// The text that travels beside the request.
  [[nodiscard]] std::string_view optionalParam() const noexcept { return ZAL_Message_GetOptionalParam(handle_); }
  /// Of a dataset: the path and query behind its name. Else empty.
  [[nodiscard]] std::string_view filter() const noexcept {
    const char* const text = ZAL_Message_GetFilter(handle_);
    return text != nullptr ? text : std::string_view{};
  }
  /// The sender's own data, the member "data" of the envelope; null when there is none.
  [[nodiscard]] Node data() const noexcept {
    if (!data_ && document()) data_ = Object{ZAL_Object_GetObject(document().handle(), "data")};
    return data_;
  }
  /// The whole document that arrived; null when there is none.
  [[nodiscard]] Node document() const noexcept { return Node{ZAL_Message_GetData(handle_)}; }
  /// The sender's bytes, the base64 in the member "data"; empty, and a log line, when there are none.
  [[nodiscard]] std::vector<std::uint8_t> payload() const {
    std::uint8_t* bytes = nullptr;
    std::uint32_t size = 0;
    ZAL_Message_GetPayload(handle_, &bytes, &size);
    return {bytes, bytes + size};
  }
  /// For the C functions.
  [[nodiscard]] ZAL_MessageHandle handle() const noexcept { return handle_; }

 private:
  ZAL_MessageHandle handle_;
  mutable Object data_{nullptr};  // a view, made when it is first asked for
};

// ---- Clients -------------------------------------------------------------------------------------------------------

// Not for callers.
namespace detail {

/// A method or a dataset: the user data of its registration, which lives as long as its client.
struct Endpoint {
  explicit Endpoint(std::string service) : source{std::move(service)} {}
  const std::string source;
  Slot<const Request&, Response&> handler;
};

inline void serve(const Endpoint& endpoint, ZAL_MessageHandle request, ZAL_MessageHandle response) noexcept {
  const InCall inCall;
  Response answer{response, endpoint.source.c_str()};
  const auto serveIt = [&] {
    const auto handler = endpoint.handler.get();
    if (handler == nullptr) return answer.setError(404, "removed while it was asked");
    handler->call(Request{request}, answer);
    answer.finish();
  };
  attempt(serveIt, [&](std::int32_t code, const char* text) { answer.setError(code, text); });
}

inline int serveMethod(ZAL_MessageHandle request, ZAL_MessageHandle response, void* endpoint) noexcept {
  serve(*static_cast<const Endpoint*>(endpoint), request, response);
  return 0;
}

/// Datasets come without user data, so that each one needs a function of its own: one of these.
inline constexpr std::size_t kMaxDatasets = 64;
inline std::array<std::atomic<const Endpoint*>, kMaxDatasets> datasets{};

template <std::size_t Index>
int serveDataset(ZAL_MessageHandle request, ZAL_MessageHandle response, ZAL_MessageHandle) noexcept {
  serve(*datasets[Index].load(), request, response);
  return 0;
}

template <std::size_t... Indices>
constexpr std::array<ZAL_DatasetCallback, sizeof...(Indices)> datasetFunctions(std::index_sequence<Indices...>) {
  return {serveDataset<Indices>...};
}

class DatasetEndpoint : public Endpoint {
 public:
  explicit DatasetEndpoint(std::string service) : Endpoint{std::move(service)} {
    for (const Endpoint* none = nullptr; !datasets[index_].compare_exchange_strong(none, this); none = nullptr) {
      if (++index_ == kMaxDatasets) raise(std::length_error{"too many datasets in one process"});
    }
  }
  ~DatasetEndpoint() { datasets[index_] = nullptr; }
  DatasetEndpoint(const DatasetEndpoint&) = delete;
  DatasetEndpoint& operator=(const DatasetEndpoint&) = delete;

  [[nodiscard]] ZAL_DatasetCallback function() const noexcept {
    static constexpr auto kFunctions = datasetFunctions(std::make_index_sequence<kMaxDatasets>{});
    return kFunctions[index_];
  }

 private:
  std::size_t index_ = 0;
};

struct ClientRuntime;

/// A question to another party that has no answer yet.
struct Question {
  ClientRuntime* runtime;
  std::list<Question>::iterator self;
  Slot<Node> callback;
};

/// A client and all that its callbacks point to. It stays where it is when the Client that owns it is moved.
struct ClientRuntime {
  explicit ClientRuntime(const ZAL_ClientOptions& options) : client{made(ZAL_Client_Create(&options))} {
    ZAL_Client_AddConnectCallback(client, notifyFlag, &connected);
    ZAL_Client_AddDisconnectCallback(client, notifyFlag, &disconnected);
    ZAL_Client_AddConfigurationChangeCallback(client, notifyProfile, &reconfigured);
  }
  ~ClientRuntime() { ZAL_Client_Destroy(client); }  // before the members below: the last handler has ended then
  ClientRuntime(const ClientRuntime&) = delete;
  ClientRuntime& operator=(const ClientRuntime&) = delete;

  void stop() const noexcept { ZAL_Client_Stop(client); }

  static void notifyFlag(void* slot, unsigned flag) noexcept {
    notify(*static_cast<const Slot<unsigned>*>(slot), "connection", flag);
  }
  static void notifyProfile(void* slot, const char* service) noexcept {
    notify(*static_cast<const Slot<std::string_view>*>(slot), "configuration", std::string_view{service});
  }
  static void notifyAnswer(ZAL_ObjectHandle answer, void* question) noexcept {
    auto& asked = *static_cast<Question*>(question);
    std::list<Question> answered;  // ends outside the lock
    {
      const std::lock_guard<std::mutex> hold{asked.runtime->mutex};
      answered.splice(answered.begin(), asked.runtime->questions, asked.self);
    }
    notify(asked.callback, "answer", Node{answer});
  }

  /// The client's service of that name, which is made when there is none. With the lock held.
  ZAL_ServiceHandle service(const std::string& name) {
    ZAL_ServiceHandle& known = services[name];
    if (known == nullptr) {
      known = made(ZAL_Service_Create(name.c_str()));
      ZAL_Client_AddService(client, known);
    }
    return known;
  }

  const ZAL_ClientHandle client;
  Slot<unsigned> connected;
  Slot<unsigned> disconnected;
  Slot<std::string_view> reconfigured;

  std::mutex mutex;  // guards what follows
  std::map<std::string, ZAL_ServiceHandle> services;
  std::map<std::pair<ZAL_ServiceHandle, std::string>, Endpoint> methods;
  std::map<std::string, DatasetEndpoint> datasets;
  std::list<Question> questions;
};

}  // namespace detail

/// A group of methods under one name. Valid as long as its client, from which it comes. Any thread.
class Service {
 public:
  /// Names a service of a client; Client::service does it.
  Service(detail::ClientRuntime& runtime, std::string name, ZAL_ServiceHandle handle)
      : runtime_{&runtime}, name_{std::move(name)}, handle_{handle} {}

  /// Offers a method, or replaces its handler, which is called as handler(const Request&, Response&). The agent learns
  /// of a new one when it connects the next time. Gives the service itself, for its next method.
  template <class Handler>
  Service& method(const std::string& name, Handler&& handler) {
    detail::Replaced replaced;
    const std::lock_guard<std::mutex> hold{runtime_->mutex};
    auto& endpoint = runtime_->methods.try_emplace({handle_, name}, name_).first->second;
    replaced = endpoint.handler.set(std::forward<Handler>(handler));
    ZAL_Service_AddMethod(handle_, name.c_str(), detail::serveMethod, &endpoint);
    return *this;
  }
  /// Takes a method back: the next request for it gets an answer without content.
  void removeMethod(const std::string& name) const {
    detail::Replaced replaced;
    const std::lock_guard<std::mutex> hold{runtime_->mutex};
    const auto known = runtime_->methods.find({handle_, name});
    if (known == runtime_->methods.end()) return;
    ZAL_Service_AddMethod(handle_, name.c_str(), nullptr, nullptr);
    replaced = known->second.handler.clear();
  }

  /// Sends an event of this service; without a connection it is dropped.
  void send(Event event) const noexcept { ZAL_Service_SendEvent(runtime_->client, handle_, event.release()); }
  /// For the C functions.
  [[nodiscard]] ZAL_ServiceHandle handle() const noexcept { return handle_; }

 private:
  detail::ClientRuntime* runtime_;
  std::string name_;
  ZAL_ServiceHandle handle_;
};

/// A client of the agent: see zal_client.h for what it does when.
///
/// Destroying it stops it and waits for the last of its handlers; destroyed in a handler of this header, it is stopped
/// at once, and its rest ends on a thread of its own when the handlers have returned. (A handler written in C cannot
/// destroy it.) Services that it is to offer are made through it alone, not with ZAL_Client_AddService.
///
/// Threads: any thread, but for moving and destroying it.
class Client {
 public:
  /// Makes a client of the agent at the default address.
  Client() : Client{nullptr} {}
  /// Makes a client of the agent at an address, "file:///run/agent.sock" or "tcp://127.0.0.1:5000", that waits so long
  /// between two attempts to connect. Null and 0 are the defaults of ZAL_Client_GetDefaultOptions.
  explicit Client(Text url, std::chrono::milliseconds interval = std::chrono::milliseconds::zero())
      : runtime_{new detail::ClientRuntime{options(url.get(), interval)}} {}

  /// Starts to connect, and waits for it for a second at most; attempts go on in the background.
  void start() const noexcept { ZAL_Client_Start(runtime_->client); }
  /// Disconnects; it may be started again. Allowed in a handler.
  void stop() const noexcept { runtime_->stop(); }

  /// The service of that name, which is made when there is none. To be filled before the client starts.
  [[nodiscard]] Service service(const std::string& name) const {
    const std::lock_guard<std::mutex> hold{runtime_->mutex};
    return {*runtime_, name, runtime_->service(name)};
  }
  /// Offers a dataset of the service "telemetry", or replaces its handler, which is called as
  /// handler(const Request&, Response&). The response's data takes only what the request asks for. All clients of a
  /// process may have 64 datasets together; one more throws std::length_error.
  template <class Handler>
  void dataset(const std::string& name, Handler&& handler) const {
    detail::Replaced replaced;
    const std::lock_guard<std::mutex> hold{runtime_->mutex};
    const ZAL_ServiceHandle telemetry = runtime_->service(kTelemetry);
    auto& endpoint = runtime_->datasets.try_emplace(name, kTelemetry).first->second;
    replaced = endpoint.handler.set(std::forward<Handler>(handler));
    ZAL_TelemetryService_AddDataset(telemetry, name.c_str(), endpoint.function());
  }
  /// Takes a dataset back: the next request for it gets an answer without content.
  void removeDataset(const std::string& name) const {
    detail::Replaced replaced;
    const std::lock_guard<std::mutex> hold{runtime_->mutex};
    const auto known = runtime_->datasets.find(name);
    if (known == runtime_->datasets.end()) return;
    ZAL_TelemetryService_AddDataset(runtime_->service(kTelemetry), name.c_str(), nullptr);
    replaced = known->second.handler.clear();
  }

  /// Calls handler(unsigned flag) when a connection has come up: flag 0 after its first configuration, 1 for the
  /// agent's notice. There is one such handler, which another call replaces; so with the next two. A worker thread.
  template <class Handler>
  void onConnect(Handler&& handler) const {
    runtime_->connected.set(std::forward<Handler>(handler));
  }
  /// Calls handler(unsigned flag) when the connection has gone down.
  template <class Handler>
  void onDisconnect(Handler&& handler) const {
    runtime_->disconnected.set(std::forward<Handler>(handler));
  }
  /// Calls handler(std::string_view service) when a changed configuration has been stored.
  template <class Handler>
  void onConfigurationChange(Handler&& handler) const {
    runtime_->reconfigured.set(std::forward<Handler>(handler));
  }

  /// A copy of the configuration, or of its member at a path; a null Object when there is none, or no connection.
  [[nodiscard]] Object configuration(Text path = nullptr) const noexcept {
    return Object{ZAL_Client_GetConfiguration(runtime_->client, path.get())};
  }
  /// The same from the configuration that came last, also without a connection.
  [[nodiscard]] Object lastConfiguration(Text path = nullptr) const noexcept {
    return Object{getServerConfig(runtime_->client, path.get())};
  }
  /// Whether the configuration enables an event.
  [[nodiscard]] bool isEnabled(Text event) const noexcept {
    return ZAL_Events_GetEnabled(runtime_->client, event.get()) == 1;
  }
  /// A copy of the settings of an event; a null Object when there are none, or no connection.
  [[nodiscard]] Object eventSettings(const std::string& event) const {
    return configuration("events:settings:" + event);
  }

  /// Sends an event of the service "system"; without a connection it is dropped.
  void send(Event event) const noexcept { ZAL_Client_SendEvent(runtime_->client, event.release()); }
  /// Asks another party through the agent. When the answer comes, handler(Node answer) is called on a worker thread;
  /// the Node is null when the answer is no JSON, and ends with the call. A question without an answer, or asked
  /// without a connection, keeps its handler until the client ends.
  template <class Handler>
  void ask(Text service, Text name, const Object& data, Handler&& handler) const {
    std::list<detail::Question> question(1);
    question.front().runtime = runtime_.get();
    question.front().self = question.begin();
    question.front().callback.set(std::forward<Handler>(handler));
    void* const asked = &question.front();
    {
      const std::lock_guard<std::mutex> hold{runtime_->mutex};
      runtime_->questions.splice(runtime_->questions.begin(), question);
    }
    ZAL_Client_Command_Request_Gateway(runtime_->client, service.get(), name.get(), data.handle(),
                                       detail::ClientRuntime::notifyAnswer, asked);
  }

  /// For the C functions; stays the client's.
  [[nodiscard]] ZAL_ClientHandle handle() const noexcept { return runtime_->client; }

 private:
  static constexpr const char* kTelemetry = "telemetry";

  static ZAL_ClientOptions options(const char* url, std::chrono::milliseconds interval) {
    ZAL_ClientOptions options;
    ZAL_Client_GetDefaultOptions(&options);
    if (url != nullptr && zalstrlcpy(options.url, url, sizeof options.url) >= sizeof options.url)
      detail::raise(std::length_error{"the agent's address is too long"});
    if (interval.count() > 0) options.interval = static_cast<std::int32_t>(interval.count());
    return options;
  }

  std::unique_ptr<detail::ClientRuntime, detail::End> runtime_;
};

// ---- Event loops ---------------------------------------------------------------------------------------------------

// Not for callers.
namespace detail {

/// A loop and the handlers that its callbacks point to.
struct LoopRuntime {
  struct Entry {
    explicit Entry(LoopRuntime& owner) noexcept : runtime{&owner} {}
    LoopRuntime* const runtime;
    std::list<Entry>::iterator self;
    Slot<> handler;
  };

  explicit LoopRuntime(std::string loopName)
      : name{std::move(loopName)}, loop{made(ZAL_EventLoop_Create(0, name.c_str()))} {}
  ~LoopRuntime() { ZAL_EventLoop_Destroy(loop); }  // before the members below: the last callback has ended then
  LoopRuntime(const LoopRuntime&) = delete;
  LoopRuntime& operator=(const LoopRuntime&) = delete;

  void stop() const noexcept { ZAL_EventLoop_Stop(loop); }

  template <class Handler>
  Entry& add(Handler&& handler) {
    std::list<Entry> entry;
    entry.emplace_back(*this);
    entry.front().self = entry.begin();
    entry.front().handler.set(std::forward<Handler>(handler));
    const std::lock_guard<std::mutex> hold{mutex};
    entries.splice(entries.begin(), entry);
    return entries.front();
  }

  static void fire(const void* entry) noexcept { notify(static_cast<const Entry*>(entry)->handler, "event loop"); }
  static void runJob(uv_work_t* job) noexcept {
    fire(job->data);
    drop(job);
  }
  static void drop(uv_work_t* job) noexcept {
    auto& entry = *static_cast<Entry*>(job->data);
    std::list<Entry> dropped;  // ends outside the lock
    const std::lock_guard<std::mutex> hold{entry.runtime->mutex};
    dropped.splice(dropped.begin(), entry.runtime->entries, entry.self);
  }

  const std::string name;
  const ZAL_EventLoopContext loop;
  std::mutex mutex;  // guards the list
  std::list<Entry> entries;
};

}  // namespace detail

/// A started timer or poll, which ends with it: no call of the handler begins afterwards, save one that another thread
/// is about to make. May be destroyed in its own handler, but not be captured by it.
class [[nodiscard]] Watch {
 public:
  /// Watches nothing.
  Watch() noexcept = default;
  Watch(Watch&& other) noexcept { *this = std::move(other); }  ///< leaves the other one without anything to watch
  /// Ends its own watch and takes the other one's.
  Watch& operator=(Watch&& other) noexcept {
    std::swap(runtime_, other.runtime_);
    std::swap(entry_, other.entry_);
    std::swap(timer_, other.timer_);
    std::swap(poll_, other.poll_);
    if (this != &other) other.stop();
    return *this;
  }
  ~Watch() { stop(); }

  /// Ends it now. Any thread, but one at a time.
  void stop() noexcept {
    if (runtime_ == nullptr) return;
    entry_->handler.clear();
    if (timer_ != nullptr) ZAL_EventLoop_StopTimer(runtime_->loop, timer_);
    if (poll_ != nullptr) ZAL_EventLoop_StopPoll(runtime_->loop, poll_);
    // The entry is read until the loop thread has stopped the handle. This job is queued behind that; where it cannot
    // be queued, the entry stays until the loop ends.
    static_cast<void>(ZAL_EventLoop_Work(runtime_->loop, detail::LoopRuntime::drop, entry_));
    runtime_ = nullptr;
  }

 private:
  friend class EventLoop;
  Watch(std::shared_ptr<detail::LoopRuntime> runtime, detail::LoopRuntime::Entry& entry) noexcept
      : runtime_{std::move(runtime)}, entry_{&entry} {}

  std::shared_ptr<detail::LoopRuntime> runtime_;
  detail::LoopRuntime::Entry* entry_ = nullptr;
  uv_timer_t* timer_ = nullptr;
  uv_poll_t* poll_ = nullptr;
};

/// An event loop with a thread of its own, for the program's timers and descriptors.
///
/// Handlers are called as handler(). Destroying the loop stops it and waits for the handlers; the loop's record stays
/// until its last Watch has ended. It may be destroyed in a handler, like a Client.
///
/// Threads: any thread, but for moving and destroying it.
class EventLoop {
 public:
  /// Makes a loop that does not run yet. Its thread bears the name when that has 15 characters at most.
  explicit EventLoop(std::string name) : runtime_{new detail::LoopRuntime{std::move(name)}, detail::End{}} {}
  EventLoop(EventLoop&& other) noexcept = default;  ///< leaves the other one without a loop
  /// Ends its own loop and takes the other one's.
  EventLoop& operator=(EventLoop&& other) noexcept {
    const EventLoop old{std::exchange(runtime_, std::exchange(other.runtime_, nullptr))};
    return *this;
  }
  ~EventLoop() {
    if (runtime_) stop();
  }

  /// Runs the loop on its thread, and returns at once.
  void run() const noexcept { ZAL_EventLoop_Run(runtime_->loop); }
  /// Ends the thread; what was started goes on when it runs again.
  void stop() const noexcept { runtime_->stop(); }

  /// Calls a handler once, on the loop thread.
  template <class Handler>
  Watch after(std::chrono::milliseconds delay, Handler&& handler) const {
    return startTimer(delay, std::chrono::milliseconds::zero(), std::forward<Handler>(handler));
  }
  /// Calls a handler again and again, on the loop thread.
  template <class Handler>
  Watch every(std::chrono::milliseconds interval, Handler&& handler) const {
    return startTimer(interval, interval, std::forward<Handler>(handler));
  }
  /// Calls a handler on the loop thread whenever a descriptor is readable. The descriptor becomes non-blocking, stays
  /// the caller's, and is to be open until the loop thread has taken up the end of the watch.
  template <class Handler>
  Watch onReadable(int descriptor, Handler&& handler) const {
    Watch watch{runtime_, runtime_->add(std::forward<Handler>(handler))};
    const auto fire = [](uv_poll_t* poll, int, int) { detail::LoopRuntime::fire(ZAL_EventLoop_GetPollContext(poll)); };
    watch.poll_ = detail::made(ZAL_EventLoop_StartPoll(runtime_->loop, fire, descriptor, watch.entry_));
    return watch;
  }
  /// Calls a handler once, on a worker thread.
  template <class Handler>
  void work(Handler&& handler) const {
    auto& entry = runtime_->add(std::forward<Handler>(handler));
    if (ZAL_EventLoop_Work(runtime_->loop, detail::LoopRuntime::runJob, &entry) != 0) detail::raise(std::bad_alloc{});
  }

  /// For the C functions; stays the loop's.
  [[nodiscard]] ZAL_EventLoopContext handle() const noexcept { return runtime_->loop; }

 private:
  explicit EventLoop(std::shared_ptr<detail::LoopRuntime> runtime) noexcept : runtime_{std::move(runtime)} {}

  template <class Handler>
  Watch startTimer(std::chrono::milliseconds delay, std::chrono::milliseconds repeat, Handler&& handler) const {
    const auto positive = [](std::chrono::milliseconds time) {
      return time.count() > 0 ? static_cast<std::uint64_t>(time.count()) : 0;
    };
    Watch watch{runtime_, runtime_->add(std::forward<Handler>(handler))};
    const auto fire = [](uv_timer_t* timer) { detail::LoopRuntime::fire(ZAL_EventLoop_GetTimerContext(timer)); };
    watch.timer_ =
        detail::made(ZAL_EventLoop_StartTimer(runtime_->loop, fire, positive(delay), positive(repeat), watch.entry_));
    return watch;
  }

  std::shared_ptr<detail::LoopRuntime> runtime_;
};

}  // namespace zal

#endif
