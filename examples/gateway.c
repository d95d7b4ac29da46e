/*
 * gateway: a small but complete client of the agent, in plain C.
 *
 *   gateway [URL]      URL is the agent's address, by default file:///tmp/zalIPC.sock
 *
 * It offers the services "network" and "system", the telemetry dataset "device" and the event "heartbeat", and asks the
 * agent a question of its own after every connect. It runs until SIGINT or SIGTERM.
 *
 * Threads: main() builds everything and waits. Handlers and callbacks of the client run on worker threads, several at a
 * time, so what they share is guarded by a mutex. The heartbeat runs on the thread of a loop of its own.
 */
#include <inttypes.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/sysinfo.h>

#include <zal/zal.h>

enum {
  CONNECT_INTERVAL_MS = 250,
  FIRST_HEARTBEAT_MS = 100,
  DEFAULT_HEARTBEAT_MS = 1000,
  ERROR_BAD_REQUEST = 400,
  ERROR_NOT_FOUND = 404
};

struct interface {
  const char* name;
  int isUp;
  int32_t mtu;
};

/* What the handlers share. They get a pointer to it as their user data. */
struct gateway {
  ZAL_ClientHandle client;
  ZAL_MutexHandle lock; /* guards interfaces */
  struct interface interfaces[2];
  uint32_t heartbeats; /* of the heartbeat's thread alone */
};

/* ---- Requests -------------------------------------------------------------------------------------------------- */

/*
 * The data of a request message is the whole document that the sender wrote. Senders wrap their own data in an
 * envelope, {"timestamp":..., "data":...}, so members are found below "data". A path has its steps separated by ":". A
 * request may come without any document; then there is no data at all.
 */
static const char* requestText(ZAL_MessageHandle request, const char* path) {
  ZAL_ObjectHandle data = ZAL_Message_GetData(request);
  return data == NULL ? NULL : ZAL_Object_GetString(data, path);
}

/* With gateway->lock held. */
static struct interface* findInterface(struct gateway* gateway, const char* name) {
  for (size_t i = 0; i < sizeof gateway->interfaces / sizeof gateway->interfaces[0]; ++i) {
    if (strcmp(gateway->interfaces[i].name, name) == 0) return &gateway->interfaces[i];
  }
  return NULL;
}

static void addInterface(ZAL_ObjectHandle list, const struct interface* interface) {
  /* An object made through another one belongs to it: only the outermost is ever released. */
  ZAL_ObjectHandle entry = ZAL_Array_AddObject(list);
  if (entry == NULL) return;
  ZAL_Object_AddString(entry, "name", interface->name);
  ZAL_Object_AddBool(entry, "up", interface->isUp);
  ZAL_Object_AddInt32(entry, "mtu", interface->mtu);
}

/* network getStatus: every interface, or the one that the request names, {"name": "eth0"}. */
static int getStatus(ZAL_MessageHandle request, ZAL_MessageHandle response, void* userData) {
  struct gateway* gateway = userData;
  const char* wanted = requestText(request, "data:name");
  ZAL_ObjectHandle data = ZAL_Object_Create();
  ZAL_ObjectHandle list = data == NULL ? NULL : ZAL_Object_AddArray(data, "interfaces");

  ZAL_Mutex_Lock(gateway->lock);
  for (size_t i = 0; list != NULL && i < sizeof gateway->interfaces / sizeof gateway->interfaces[0]; ++i) {
    const struct interface* interface = &gateway->interfaces[i];
    if (wanted == NULL || strcmp(wanted, interface->name) == 0) addInterface(list, interface);
  }
  ZAL_Mutex_Unlock(gateway->lock);

  ZAL_Message_SetData(response, data); /* the response owns the data now */
  return 0;
}

/* network setInterface: {"name": "eth0", "up": true, "mtu": 1400}; what is left out stays as it is. */
static int setInterface(ZAL_MessageHandle request, ZAL_MessageHandle response, void* userData) {
  struct gateway* gateway = userData;
  const char* name = requestText(request, "data:name");
  if (name == NULL) {
    ZAL_Message_SetError(response, ERROR_BAD_REQUEST, "network", "the name of the interface is missing");
    return 0;
  }

  ZAL_Mutex_Lock(gateway->lock);
  struct interface* interface = findInterface(gateway, name);
  if (interface == NULL) {
    /* An answer with an error holds the error alone. */
    ZAL_Message_SetError(response, ERROR_NOT_FOUND, "network", "there is no such interface");
  } else {
    /* A getter returns 1 and stores the value when the member is there, and leaves the variable alone when not. */
    uint8_t isUp = (uint8_t)interface->isUp;
    ZAL_Object_GetBool(ZAL_Message_GetData(request), "data:up", &isUp);
    interface->isUp = isUp;
    ZAL_Object_GetInt32(ZAL_Message_GetData(request), "data:mtu", &interface->mtu);
    ZAL_Message_SetData(response, ZAL_Object_Create());
  }
  ZAL_Mutex_Unlock(gateway->lock);
  return 0;
}

/* system getInfo: what uname(2) tells. */
static int getInfo(ZAL_MessageHandle request, ZAL_MessageHandle response, void* userData) {
  (void)request;
  (void)userData;
  uv_utsname_t name;
  if (ZAL_Uname(&name) != 0) {
    ZAL_Message_SetError(response, ERROR_NOT_FOUND, "system", "the system does not tell its name");
    return 0;
  }
  ZAL_ObjectHandle data = ZAL_Object_Create();
  if (data != NULL) {
    ZAL_Object_AddString(data, "system", name.sysname);
    ZAL_Object_AddString(data, "machine", name.machine);
    ZAL_Object_AddString(data, "client", "gateway");
  }
  ZAL_Message_SetData(response, data);
  return 0;
}

/* ---- Telemetry ------------------------------------------------------------------------------------------------- */

/*
 * telemetry device[/PATH][?QUERY]. The handler adds all that it has. An object made by ZAL_TelemetryObject_Create knows
 * the path and the query of the request, and takes only the members that they ask for. An object below it that nobody
 * asked for is not made: then there is a null handle, and what it takes to fill it can be saved.
 */
static void addSystem(ZAL_ObjectHandle data) {
  ZAL_ObjectHandle system = ZAL_Object_AddObject(data, "system");
  if (system == NULL) return;
  ZAL_Object_AddString(system, "hostname", "gateway");

  ZAL_ObjectHandle cpu = ZAL_Object_AddObject(system, "cpu");
  if (cpu != NULL) {
    double load = 0;
    getloadavg(&load, 1);
    ZAL_Object_AddDouble(cpu, "load", load);
    ZAL_Object_AddDouble(cpu, "temp", 41.5); /* a device would read its sensor */
  }

  struct sysinfo info;
  ZAL_ObjectHandle memory = ZAL_Object_AddObject(system, "memory");
  if (memory != NULL && sysinfo(&info) == 0) {
    ZAL_Object_AddUint64(memory, "total", (uint64_t)info.totalram * info.mem_unit);
    ZAL_Object_AddUint64(memory, "free", (uint64_t)info.freeram * info.mem_unit);
  }
}

static int readDevice(ZAL_MessageHandle request, ZAL_MessageHandle response, ZAL_MessageHandle sameResponse) {
  (void)request;
  (void)sameResponse;
  ZAL_ObjectHandle data = ZAL_TelemetryObject_Create(response);
  if (data == NULL) return 0;
  addSystem(data);
  ZAL_ObjectHandle network = ZAL_Object_AddObject(data, "network");
  if (network != NULL) {
    ZAL_Object_AddUint32(network, "received", 1024);
    ZAL_Object_AddUint32(network, "sent", 512);
  }
  ZAL_Message_SetData(response, data);
  return 0;
}

/* ---- Events ---------------------------------------------------------------------------------------------------- */

/* The interval of the heartbeat as the agent's configuration sets it: events.settings.heartbeat.interval. */
static int32_t heartbeatInterval(ZAL_ClientHandle client) {
  int32_t interval = 0;
  const int result = ZAL_Events_GetParamNumber(client, "heartbeat", "interval", &interval);
  return result == ZAL_CLIENT_OK && interval > 0 ? interval : DEFAULT_HEARTBEAT_MS;
}

/* On the heartbeat's loop. While there is no connection there is no configuration to read: the event is not enabled. */
static void onHeartbeat(uv_timer_t* timer) {
  struct gateway* gateway = ZAL_EventLoop_GetTimerContext(timer);
  ZAL_EventLoop_UpdateTimer(timer, (uint64_t)heartbeatInterval(gateway->client));
  if (!ZAL_Events_GetEnabled(gateway->client, "heartbeat")) return;

  ZAL_MessageHandle event = ZAL_Message_Create();
  ZAL_ObjectHandle data = ZAL_Object_Create();
  if (event == NULL || data == NULL) {
    if (event != NULL) ZAL_Message_Destroy(event);
    if (data != NULL) ZAL_Object_Destroy(data);
    return;
  }
  ZAL_Message_SetName(event, "heartbeat");
  ZAL_Object_AddUint32(data, "count", ++gateway->heartbeats);
  ZAL_Message_SetData(event, data);
  ZAL_Client_SendEvent(gateway->client, event); /* takes the message, too */
}

/* ---- Connection ------------------------------------------------------------------------------------------------ */

/* The answer to askCloud(). The object lasts as long as this call. */
static void onCloudAnswer(ZAL_ObjectHandle answer, void* userData) {
  (void)userData;
  char* text = answer == NULL ? NULL : ZAL_Object_DumpOutput(answer);
  printf("gateway: the cloud answered %s\n", text == NULL ? "nothing" : text);
  free(text);
}

/* A request of the client's own: the agent passes it on to another party. */
static void askCloud(struct gateway* gateway) {
  ZAL_ObjectHandle question = ZAL_Object_Create();
  if (question == NULL) return;
  ZAL_Object_AddString(question, "device", "gateway");
  ZAL_Client_Command_Request_Gateway(gateway->client, "cloud", "lookup", question, onCloudAnswer, NULL);
  ZAL_Object_Destroy(question); /* only read by the request */
}

static void printHeartbeat(ZAL_ClientHandle client) {
  if (ZAL_Events_GetEnabled(client, "heartbeat")) {
    printf("gateway: the configuration wants a heartbeat every %" PRId32 " ms\n", heartbeatInterval(client));
  } else {
    printf("gateway: the configuration wants no heartbeat\n");
  }
}

/* Called after every connect, once the configuration is there; the services are subscribed right after it. */
static void onConnect(void* userData, unsigned int flag) {
  struct gateway* gateway = userData;
  printf("gateway: connected (%u)\n", flag);
  printHeartbeat(gateway->client);
  askCloud(gateway);
}

/* The client goes on trying to connect by itself. */
static void onDisconnect(void* userData, unsigned int flag) {
  (void)userData;
  printf("gateway: disconnected (%u)\n", flag);
}

static void onProfileChanged(void* userData, const char* service) {
  struct gateway* gateway = userData;
  printf("gateway: the profile of %s changed\n", service);
  printHeartbeat(gateway->client);
}

/* ---- Start and end --------------------------------------------------------------------------------------------- */

/* Services are complete before the client starts: they are subscribed after each connect. */
static void addServices(struct gateway* gateway) {
  ZAL_ServiceHandle network = ZAL_Service_Create("network");
  ZAL_ServiceHandle system = ZAL_Service_Create("system");
  ZAL_ServiceHandle telemetry = ZAL_TelemetryService_Create();
  if (network == NULL || system == NULL || telemetry == NULL) {
    fprintf(stderr, "gateway: out of memory\n");
    exit(EXIT_FAILURE);
  }
  ZAL_Service_AddMethod(network, "getStatus", getStatus, gateway);
  ZAL_Service_AddMethod(network, "setInterface", setInterface, gateway);
  ZAL_Service_AddMethod(system, "getInfo", getInfo, gateway);
  ZAL_TelemetryService_AddDataset(telemetry, "device", readDevice);

  ZAL_Client_AddService(gateway->client, network); /* the client owns them from here on */
  ZAL_Client_AddService(gateway->client, system);
  ZAL_Client_AddService(gateway->client, telemetry);
}

static ZAL_ClientHandle createClient(const char* url) {
  ZAL_ClientOptions options;
  ZAL_Client_GetDefaultOptions(&options);
  if (url != NULL) zalstrlcpy(options.url, url, sizeof options.url);
  options.interval = CONNECT_INTERVAL_MS;
  return ZAL_Client_Create(&options);
}

/* Before any thread starts, so that all of them inherit it and only sigwait() below gets the signals. */
static sigset_t blockEndSignals(void) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, NULL);
  return signals;
}

int main(int argc, char** argv) {
  if (argc > 2) {
    fprintf(stderr, "usage: gateway [URL]\n");
    return 2;
  }
  setvbuf(stdout, NULL, _IOLBF, 0); /* lines come out at once, into a pipe as well */
  const sigset_t signals = blockEndSignals();

  struct gateway gateway = {.interfaces = {{"eth0", 1, 1500}, {"wlan0", 0, 1500}}};
  gateway.lock = ZAL_Mutex_Create();
  gateway.client = createClient(argc == 2 ? argv[1] : NULL);
  ZAL_EventLoopContext loop = ZAL_EventLoop_Create(0, "heartbeat");
  if (gateway.lock == NULL || gateway.client == NULL || loop == NULL) {
    fprintf(stderr, "gateway: out of memory\n");
    return EXIT_FAILURE;
  }
  addServices(&gateway);
  ZAL_Client_AddConnectCallback(gateway.client, onConnect, &gateway);
  ZAL_Client_AddDisconnectCallback(gateway.client, onDisconnect, &gateway);
  ZAL_Client_AddConfigurationChangeCallback(gateway.client, onProfileChanged, &gateway);

  ZAL_Client_Start(gateway.client);
  uv_timer_t* heartbeat =
      ZAL_EventLoop_StartTimer(loop, onHeartbeat, FIRST_HEARTBEAT_MS, DEFAULT_HEARTBEAT_MS, &gateway);
  ZAL_EventLoop_Run(loop);

  int signalNumber = 0;
  sigwait(&signals, &signalNumber);
  printf("gateway: ending\n");

  /* The heartbeat uses the client, so it ends first; the handlers use the lock, so that goes last. */
  ZAL_EventLoop_StopTimer(loop, heartbeat);
  ZAL_EventLoop_Stop(loop);
  ZAL_EventLoop_Destroy(loop);
  ZAL_Client_Stop(gateway.client);
  ZAL_Client_Destroy(gateway.client);
  ZAL_Mutex_Destroy(gateway.lock);
  return EXIT_SUCCESS;
}
