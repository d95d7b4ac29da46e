/* A C program that uses every family of the library through the public headers alone, and plays both parts: a client of
   the runtime, and an agent on the server side of the transport, each on its own loop. It ends with 0 when every step
   gave what it must. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <zal/zal.h>

#include "check.h"

enum { kDeadlineMs = 60000 };

static void foundation(void) {
  char text[8];
  char encoded[8];
  unsigned char decoded[4];
  uv_utsname_t system;

  CHECK(zalstrlcpy(text, "abcdefghij", sizeof text) == 10 && strcmp(text, "abcdefg") == 0);
  CHECK(zbase64_encode("abc", 3, encoded, sizeof encoded) == 4 && memcmp(encoded, "YWJj", 4) == 0);
  CHECK(zbase64_decode("YWJj", 4, decoded, sizeof decoded) == 3 && memcmp(decoded, "abc", 3) == 0);
  CHECK(ZAL_GetTimestamp() > 0.0 && ZAL_Uname(&system) == 0 && system.sysname[0] != '\0');
  CHECK(ZAL_CheckForSpecialTag("range") == 1 && ZAL_RoundUp512(1000000000) == 1073741824);
}

static void uris(void) {
  static const char kUri[] = "svc/method/x?include=a";
  vorn_uri_parts parts;
  char text[32];
  ZAL_UriParserHandle uri = ZAL_UriParser_Create(kUri);

  CHECK(uri != NULL);
  ZAL_UriParser_GetPathQuery(uri, text, sizeof text);
  CHECK(strcmp(text, "method/x?include=a") == 0);
  CHECK(ZAL_UriParser_FindTagValue(uri, "include", text, sizeof text) == 1 && strcmp(text, "a") == 0);
  ZAL_UriParser_Destroy(uri);

  CHECK(vorn_uri_parse("tcp://10.0.0.1:5000/a%20b", &parts) == 0);
  CHECK(parts.port == 5000 && strcmp(parts.host, "10.0.0.1") == 0 && strcmp(parts.path, "/a b") == 0);
}

static void documents(void) {
  ZAL_ObjectHandle top = ZAL_Object_Create();
  ZAL_ObjectHandle ports = ZAL_Object_AddArray(top, "ports");
  ZAL_ObjectHandle port = ZAL_Array_AddObject(ports);
  ZAL_MessageHandle message = ZAL_Message_Create();
  int32_t number = 0;
  uint32_t size = 0;
  char* text;

  CHECK(ZAL_Object_AddString(port, "name", "eth0") && ZAL_Object_AddInt32(port, "speed", 1000));
  CHECK(ZAL_Object_GetInt32(top, "ports[0]:speed", &number) == 1 && number == 1000);
  CHECK(strcmp(ZAL_Object_GetString(top, "ports[0]:name"), "eth0") == 0);
  CHECK(ZAL_Array_GetSize(ports, &size) == 1 && size == 1);
  text = ZAL_Object_DumpOutput(top);
  CHECK(strcmp(text, "{\"ports\":[{\"name\":\"eth0\",\"speed\":1000}]}") == 0);
  free(text);
  CHECK(filterTest("ports?exclude=speed", "ports/speed", 1) == 0);

  ZAL_Message_SetVersion(message, 2);
  ZAL_Message_SetData(message, top);
  text = ZAL_Message_DumpOutput(message);
  CHECK(strstr(text, "{\"version\":2,\"timestamp\":") == text && strstr(text, "\"data\":{\"ports\":[{") != NULL);
  free(text);
  ZAL_Message_Destroy(message);
}

static void images(void) {
  int32_t packed = 0;
  int32_t unpacked = 0;
  int32_t i;
  void* image = NULL;
  size_t size = 0;
  tpl_map_node* map = tpl_map("A(i)", &packed);

  for (i = 1; i <= 3; ++i) {
    packed = i * 10;
    CHECK(tpl_pack(map, 1) == 0);
  }
  CHECK(tpl_dump(map, TPL_VIA_MEM, &image, &size) == 0);
  tpl_free(map);

  map = tpl_map("A(i)", &unpacked);
  CHECK(tpl_load(map, TPL_VIA_MEM, image, size) == 0 && tpl_Alen(map, 1) == 3);
  for (i = 1; i <= 3; ++i) CHECK(tpl_unpack(map, 1) > 0 && unpacked == i * 10);
  CHECK(tpl_unpack(map, 1) == 0);
  tpl_free(map);
  free(image);
}

static void fireOnce(uv_timer_t* timer) {
  ZAL_Cond_Signal(ZAL_EventLoop_GetTimerContext(timer));
}

static void workOnce(uv_work_t* request) {
  ZAL_Cond_Signal(request->data);
}

static void loops(void) {
  ZAL_CondHandle fired = ZAL_Cond_Create();
  ZAL_EventLoopContext loop = ZAL_EventLoop_Create(0, "c-loop");
  uv_timer_t* timer = ZAL_EventLoop_StartTimer(loop, fireOnce, 1, 0, fired);

  ZAL_EventLoop_Run(loop);
  CHECK(ZAL_Cond_Wait(fired, kDeadlineMs) == 0);
  CHECK(ZAL_EventLoop_Work(loop, workOnce, fired) == 0);
  CHECK(ZAL_Cond_Wait(fired, kDeadlineMs) == 0);
  ZAL_EventLoop_StopTimer(loop, timer);
  ZAL_EventLoop_Stop(loop);
  ZAL_EventLoop_Destroy(loop);
  ZAL_Cond_Destroy(fired);
}

/* The agent: it answers the client's question for its configuration, waits for the subscription, then calls the method
   and waits for the reply. Everything of it runs on its loop. */
typedef struct Agent {
  ZAL_IpcHandle ipc;
  ZAL_CondHandle done;
  int subscribed;
  int answered;
  int events;
} Agent;

static void sendRecord(Agent* agent, ZAL_IpcClientContext client, const ZAL_IpcCommand* record) {
  ZAL_IpcCommandList list = ZAL_IpcCommand_Create();
  void* image = NULL;
  uint32_t size = 0;
  ZAL_IpcCommand_Add(list, record);
  ZAL_IpcCommand_GetBuffer(list, &image, &size);
  ZAL_IpcCommand_Destroy(list);
  CHECK(image != NULL);
  ZAL_IPC_ServerWrite(agent->ipc, client, image, size);
}

static void sendConfiguration(Agent* agent, ZAL_IpcClientContext client) {
  static char kDocument[] = "{\"events\":{\"settings\":{\"alarm\":{\"enabled\":true,\"limit\":7}}}}";
  ZAL_IpcCommand record;
  memset(&record, 0, sizeof record);
  record.code = ZAL_IPC_CMD_CONFIG;
  record.payload = kDocument;
  record.payloadSize = sizeof kDocument - 1;
  sendRecord(agent, client, &record);
}

static void callMethod(Agent* agent, ZAL_IpcClientContext client) {
  static char kArguments[] = "{\"value\":20}";
  ZAL_IpcCommand record;
  memset(&record, 0, sizeof record);
  record.code = ZAL_IPC_CMD_REQUEST;
  zalstrlcpy(record.service, "calculator", sizeof record.service);
  zalstrlcpy(record.name, "double", sizeof record.name);
  record.payload = kArguments;
  record.payloadSize = sizeof kArguments - 1;
  record.requestId = 9;
  sendRecord(agent, client, &record);
}

static void takeReply(Agent* agent, const ZAL_IpcCommand* record) {
  ZAL_ObjectHandle envelope = ZAL_Object_CreateFromJson(record->payload, record->payloadSize);
  int32_t result = 0;
  CHECK(record->requestId == 9 && strcmp(record->name, "double") == 0);
  CHECK(ZAL_Object_GetInt32(envelope, "data:result", &result) == 1 && result == 40);
  ZAL_Object_Destroy(envelope);
  agent->answered = 1;
}

static void onRecord(Agent* agent, ZAL_IpcClientContext client, const ZAL_IpcCommand* record) {
  switch (record->code) {
    case ZAL_IPC_CMD_GET_CONFIG:
      sendConfiguration(agent, client);
      break;
    case ZAL_IPC_CMD_SUBSCRIBE:
      CHECK(strcmp(record->service, "calculator") == 0 && strcmp(record->name, "double") == 0);
      agent->subscribed = 1;
      callMethod(agent, client);
      break;
    case ZAL_IPC_CMD_RESPONSE:
      takeReply(agent, record);
      break;
    case ZAL_IPC_CMD_EVENT:
      CHECK(strcmp(record->service, "system") == 0 && strcmp(record->name, "alarm") == 0);
      agent->events++;
      break;
    default:
      CHECK(!"a code that no client sends");
  }
}

static void onImage(void* image, uint32_t length, void* userData, void* source) {
  Agent* agent = userData;
  ZAL_IpcCommandList list = ZAL_IpcCommand_Decode(image, length);
  ZAL_IpcCommand* record;
  CHECK(list != NULL);
  while ((record = ZAL_IpcCommand_Remove(list)) != NULL) {
    onRecord(agent, source, record);
    if (record->payloadSize != 0) free(record->payload);
    free(record);
  }
  ZAL_IpcCommand_Destroy(list);
  if (agent->answered && agent->events > 0) ZAL_Cond_Signal(agent->done);
}

static void onClientGone(ZAL_IpcClientContext client, void* userData) {
  Agent* agent = userData;
  ZAL_IPC_CloseClient(client);
  ZAL_Cond_Signal(agent->done);
}

static int doubleIt(ZAL_MessageHandle request, ZAL_MessageHandle response, void* userData) {
  ZAL_ObjectHandle result = ZAL_Object_Create();
  int32_t value = 0;
  (void)userData;
  CHECK(ZAL_Object_GetInt32(ZAL_Message_GetData(request), "value", &value) == 1);
  CHECK(ZAL_Object_AddInt32(result, "result", 2 * value));
  ZAL_Message_SetData(response, result);
  return 0;
}

static void onConnected(void* userData, unsigned int flag) {
  CHECK(flag == 0);
  ZAL_Cond_Signal(userData);
}

static void runtime(void) {
  char path[64];
  char url[80];
  Agent agent = {NULL, NULL, 0, 0, 0};
  ZAL_EventLoopContext loop = ZAL_EventLoop_Create(0, "c-agent");
  ZAL_CondHandle connected = ZAL_Cond_Create();
  ZAL_ClientOptions options;
  ZAL_ClientHandle client;
  ZAL_ServiceHandle service;
  ZAL_MessageHandle event;
  int32_t limit = 0;

  snprintf(path, sizeof path, "/tmp/zal-c-program-%ld.sock", (long)getpid());
  snprintf(url, sizeof url, "file://%s", path);
  agent.done = ZAL_Cond_Create();
  agent.ipc = ZAL_IPC_Init(loop);
  ZAL_IPC_AddMessageCallback(agent.ipc, onImage, &agent);
  ZAL_IPC_AddClientDisconnectCallback(agent.ipc, onClientGone, &agent);
  CHECK(ZAL_IPC_ServerCreate(agent.ipc, url) == 1);
  ZAL_EventLoop_Run(loop);

  ZAL_Client_GetDefaultOptions(&options);
  zalstrlcpy(options.url, url, sizeof options.url);
  options.interval = 1;
  client = ZAL_Client_Create(&options);
  service = ZAL_Service_Create("calculator");
  ZAL_Service_AddMethod(service, "double", doubleIt, NULL);
  ZAL_Client_AddService(client, service);
  ZAL_Client_AddConnectCallback(client, onConnected, connected);
  ZAL_Client_Start(client);
  CHECK(ZAL_Cond_Wait(connected, kDeadlineMs) == 0);

  CHECK(ZAL_Events_GetEnabled(client, "alarm") == 1);
  CHECK(ZAL_Events_GetParamNumber(client, "alarm", "limit", &limit) == ZAL_CLIENT_OK && limit == 7);
  event = ZAL_Message_Create();
  ZAL_Message_SetName(event, "alarm");
  ZAL_Client_SendEvent(client, event);
  CHECK(ZAL_Cond_Wait(agent.done, kDeadlineMs) == 0);

  ZAL_Client_Stop(client);
  ZAL_Client_Destroy(client);
  CHECK(ZAL_Cond_Wait(agent.done, kDeadlineMs) == 0);
  ZAL_IPC_ServerShutdown(agent.ipc);
  ZAL_EventLoop_Stop(loop);
  CHECK(agent.subscribed == 1 && agent.answered == 1 && agent.events == 1);
  ZAL_EventLoop_Destroy(loop);
  ZAL_IPC_UnInit(agent.ipc);
  ZAL_Cond_Destroy(agent.done);
  ZAL_Cond_Destroy(connected);
  unlink(path);
}

int main(void) {
  ZAL_Log_SetLevel(ZAL_LOG_WARNING);
  foundation();
  uris();
  documents();
  images();
  loops();
  runtime();
  return 0;
}
