/* A client of this library, in C as most of its users write. */
#include <stdio.h>
#include <unistd.h>
#include <zal/zal.h>

static ZAL_ClientHandle client;

static int answerStatus(ZAL_MessageHandle request, ZAL_MessageHandle response, void* userData) {
  (void)userData;
  uint8_t isVerbose = 1;
  ZAL_Object_GetBool(ZAL_Message_GetData(request), "data:verbose", &isVerbose);
  ZAL_ObjectHandle answer = ZAL_Object_Create();
  ZAL_Object_AddString(answer, "hostname", "gateway-17");
  ZAL_Object_AddString(answer, "model", "GX-200");
  ZAL_Object_AddString(answer, "firmware", "4.12.7");
  ZAL_Object_AddUint32(answer, "uptime", 350735);
  ZAL_Object_AddDouble(answer, "load", 0.42);
  ZAL_Object_AddUint32(answer, "processes", isVerbose ? 0 : 113);
  ZAL_ObjectHandle memory = ZAL_Object_AddObject(answer, "memory");
  ZAL_Object_AddUint32(memory, "total", 512000);
  ZAL_Object_AddUint32(memory, "free", 143360);
  ZAL_Object_AddUint32(memory, "available", 262144);
  ZAL_Object_AddDouble(answer, "temperature", 41.5);
  ZAL_Object_AddBool(answer, "online", 1);
  ZAL_Object_AddString(answer, "region", "eu-central");
  ZAL_Message_SetData(response, answer);
  return 0;
}

static int answerDocument(ZAL_MessageHandle request, ZAL_MessageHandle response, void* userData) {
  (void)userData;
  ZAL_ObjectHandle readings = ZAL_Object_GetArray(ZAL_Message_GetData(request), "readings");
  uint32_t count = 0;
  ZAL_Array_GetSize(readings, &count);
  ZAL_ObjectHandle answer = ZAL_Object_Create();
  ZAL_Object_AddUint32(answer, "readings", count);
  ZAL_Array_Destroy(readings);
  ZAL_Message_SetData(response, answer);
  return 0;
}

static void sendEvent(uint32_t number) {
  ZAL_MessageHandle event = ZAL_Message_Create();
  ZAL_Message_SetName(event, "reading");
  ZAL_ObjectHandle data = ZAL_Object_Create();
  ZAL_Object_AddUint32(data, "number", number);
  ZAL_Object_AddString(data, "source", "temperature sensor of the second cabinet");
  ZAL_Object_AddString(data, "kind", "threshold");
  ZAL_Object_AddDouble(data, "value", 71.25);
  ZAL_Object_AddDouble(data, "limit", 70.0);
  ZAL_Object_AddString(data, "message", "the temperature has been above its limit for more than ten minutes");
  ZAL_Object_AddBool(data, "acknowledged", 0);
  ZAL_Message_SetData(event, data);
  ZAL_Client_SendEvent(client, event);
}

static int sendEvents(ZAL_MessageHandle request, ZAL_MessageHandle response, void* userData) {
  (void)response;
  (void)userData;
  uint32_t count = 0;
  ZAL_Object_GetUint32(ZAL_Message_GetData(request), "count", &count);
  for (uint32_t i = 0; i < count; ++i) sendEvent(i);
  return 0;
}

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  ZAL_ClientOptions options;
  ZAL_Client_GetDefaultOptions(&options);
  snprintf(options.url, sizeof options.url, "file://%s", argv[1]);
  options.interval = 1;
  client = ZAL_Client_Create(&options);
  ZAL_ServiceHandle service = ZAL_Service_Create("telemetry");
  ZAL_Service_AddMethod(service, "system", answerStatus, NULL);
  ZAL_Service_AddMethod(service, "document", answerDocument, NULL);
  ZAL_Service_AddMethod(service, "events", sendEvents, NULL);
  ZAL_Client_AddService(client, service);
  ZAL_Client_Start(client);
  pause();
}
