/*
 * documents: a client whose telemetry dataset is built on bare cJSON nodes, in plain C.
 *
 *   documents [URL]    URL is the agent's address, by default file:///tmp/zalIPC.sock
 *
 * It offers the dataset "inventory". What an answer holds is decided by two filters: the request's path and query, and
 * what the configuration hides, {"inventory": {"hide": "device/serial+ports/mac"}}. It runs until SIGINT or SIGTERM.
 *
 * Threads: main() builds everything and waits. The dataset and the callbacks run on worker threads; they share nothing
 * but the client.
 */
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include <zal/zal.h>

enum { CONNECT_INTERVAL_MS = 250, INVENTORY_VERSION = 1, FILTER_SIZE = 256, TEXT_SIZE = 256 };

struct port {
  const char* name;
  const char* mac;
  int32_t errors;
  uint8_t isUp;
};

static const struct port ports[] = {
    {"eth0", "02:00:00:00:00:01", 3, 1},
    {"eth1", "02:00:00:00:00:02", 0, 1},
    {"wlan0", "02:00:00:00:00:03", 0, 0},
};

/* Set before any thread starts. A dataset gets no user data. */
static ZAL_ClientHandle client;
static struct timeval started;

/* ---- The document ---------------------------------------------------------------------------------------------- */

/* One answer: its members are known by the keys from `top` down, and added when they pass both filters. */
struct answer {
  cJSON* top;
  const char* request;
  const char* hidden;
};

static void addDevice(const struct answer* to) {
  /* A null object is one that nobody asked for. */
  cJSON* device = json_AddObject(to->top, to->request, to->hidden, to->top, "device");
  if (device == NULL) return;
  char time[TEXT_SIZE];
  if (json_FormatTimeval(&started, time, sizeof time) > 0)
    json_AddString(device, to->request, to->hidden, to->top, "started", time);
  json_AddString(device, to->request, to->hidden, to->top, "serial", "7-4211");
  json_AddStringOrNull(device, to->request, to->hidden, to->top, "location", ""); /* unknown: null */
}

static void addPorts(const struct answer* to) {
  cJSON* list = json_AddArray(to->top, to->request, to->hidden, to->top, "ports");
  for (size_t i = 0; list != NULL && i < sizeof ports / sizeof ports[0]; ++i) {
    cJSON* entry = json_AddArrayElement(list); /* adds nothing to the identifiers: a name is "ports/name" */
    if (entry == NULL) return;
    json_AddString(entry, to->request, to->hidden, to->top, "name", ports[i].name);
    json_AddString(entry, to->request, to->hidden, to->top, "mac", ports[i].mac);
    json_AddBool(entry, to->request, to->hidden, to->top, "up", ports[i].isUp);
    json_AddCountingNumberOrNull(entry, to->request, to->hidden, to->top, "errors", ports[i].errors);
  }
}

/* The filter that the configuration asks for, empty when it hides nothing. */
static void readHidden(char* filter, size_t size) {
  filter[0] = '\0';
  ZAL_ObjectHandle configuration = ZAL_Client_GetConfiguration(client, "inventory");
  if (configuration == NULL) return;
  const char* hide = ZAL_Object_GetString(configuration, "hide"); /* borrowed from the copy */
  if (hide != NULL) snprintf(filter, size, "?exclude=%s", hide);
  ZAL_Object_Destroy(configuration);
}

/*
 * Fills the response with the document, or with what is wrong with it.
 *
 * json_CheckPluginError has cut the arrays already when the request has a range. ZAL_Message_SetData would cut again,
 * but looks for the array at the outermost level: finding none there, it says "invalid range filter" in the log, and
 * leaves the document as it is.
 */
static void answerWith(ZAL_MessageHandle response, cJSON* document, cJSON* inventory, const char* request) {
  char text[TEXT_SIZE];
  const int status = json_CheckPluginError(inventory, request, 0, NULL, text, sizeof text);
  ZAL_ObjectHandle data = status == ZAL_JSON_OK ? ZAL_Object_CreateFromcJSON(document) : NULL;
  if (data != NULL) {
    ZAL_Message_SetData(response, data); /* the response owns the document now */
    return;
  }
  if (status != ZAL_JSON_OK) ZAL_Message_SetError(response, status, "documents", text);
  json_Uninitialize(&document);
}

/* telemetry inventory[/PATH][?QUERY] */
static int readInventory(ZAL_MessageHandle request, ZAL_MessageHandle response, ZAL_MessageHandle sameResponse) {
  (void)request;
  (void)sameResponse;
  const char* filter = ZAL_Message_GetFilter(response);
  char hidden[FILTER_SIZE];
  readHidden(hidden, sizeof hidden);

  /* Nobody narrows the header: it stands outside of what is counted as the top of the identifiers. */
  cJSON* document = cJSON_CreateObject();
  json_GenerateHeader(document, NULL, "what is built in", NULL, INVENTORY_VERSION, "{\"client\":\"documents\"}");
  cJSON* inventory = json_AddObject(document, NULL, NULL, NULL, "inventory");
  if (inventory != NULL) {
    const struct answer answer = {inventory, filter, hidden};
    addDevice(&answer);
    addPorts(&answer);
  }
  answerWith(response, document, inventory, filter);
  return 0;
}

/* ---- Connection ------------------------------------------------------------------------------------------------ */

static void printHidden(void) {
  char hidden[FILTER_SIZE];
  readHidden(hidden, sizeof hidden);
  printf("documents: the configuration hides %s\n", hidden[0] == '\0' ? "nothing" : hidden);
}

static void onConnect(void* userData, unsigned int flag) {
  (void)userData;
  printf("documents: connected (%u)\n", flag);
  printHidden();
}

static void onProfileChanged(void* userData, const char* service) {
  (void)userData;
  printf("documents: the profile of %s changed\n", service);
  printHidden();
}

/* ---- Start and end --------------------------------------------------------------------------------------------- */

static int start(const char* url) {
  ZAL_ClientOptions options;
  ZAL_Client_GetDefaultOptions(&options);
  if (url != NULL) zalstrlcpy(options.url, url, sizeof options.url);
  options.interval = CONNECT_INTERVAL_MS;
  client = ZAL_Client_Create(&options);
  ZAL_ServiceHandle telemetry = ZAL_TelemetryService_Create();
  if (client == NULL || telemetry == NULL) return 0;
  gettimeofday(&started, NULL);
  ZAL_TelemetryService_AddDataset(telemetry, "inventory", readInventory);
  ZAL_Client_AddService(client, telemetry); /* the client owns it from here on */
  ZAL_Client_AddConnectCallback(client, onConnect, NULL);
  ZAL_Client_AddConfigurationChangeCallback(client, onProfileChanged, NULL);
  ZAL_Client_Start(client);
  return 1;
}

int main(int argc, char** argv) {
  if (argc > 2) {
    fprintf(stderr, "usage: documents [URL]\n");
    return 2;
  }
  setvbuf(stdout, NULL, _IOLBF, 0); /* lines come out at once, into a pipe as well */

  sigset_t signals; /* blocked before any thread starts, so that sigwait() alone gets them */
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, NULL);

  if (!start(argc == 2 ? argv[1] : NULL)) {
    fprintf(stderr, "documents: out of memory\n");
    return EXIT_FAILURE;
  }
  int signalNumber = 0;
  sigwait(&signals, &signalNumber);
  printf("documents: ending\n");
  ZAL_Client_Stop(client);
  ZAL_Client_Destroy(client);
  return EXIT_SUCCESS;
}
