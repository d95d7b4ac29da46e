// A client of this library.
#include <unistd.h>
#include <zal/zal.h>

#include <string>
#include <thread>

namespace {

ZAL_ClientHandle client;

int answerStatus(ZAL_MessageHandle request, ZAL_MessageHandle response, void*) {
  uint8_t isVerbose = 1;
  ZAL_Object_GetBool(ZAL_Message_GetData(request), "data:verbose", &isVerbose);
  ZAL_ObjectHandle answer = ZAL_Object_Create();
  ZAL_Object_AddString(answer, "hostname", "gateway-17");
  ZAL_Object_AddString(answer, "model", "GX-200");
  ZAL_Object_AddString(answer, "firmware", "4.12.7");
  ZAL_Object_AddUint32(answer, "uptime", 350735);
  ZAL_Object_AddDouble(answer, "load", 0.42);
  ZAL_Object_AddUint32(answer, "processes", isVerbose != 0 ? 0 : 113);
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

int answerDocument(ZAL_MessageHandle request, ZAL_MessageHandle response, void*) {
  ZAL_ObjectHandle readings = ZAL_Object_GetArray(ZAL_Message_GetData(request), "readings");
  uint32_t count = 0;
  ZAL_Array_GetSize(readings, &count);
  ZAL_ObjectHandle answer = ZAL_Object_Create();
  ZAL_Object_AddUint32(answer, "readings", count);
  ZAL_Array_Destroy(readings);
  ZAL_Message_SetData(response, answer);
  return 0;
}

void sendEvent(uint32_t number) {
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

int sendEvents(ZAL_MessageHandle request, ZAL_MessageHandle, void*) {
  uint32_t count = 0;
  ZAL_Object_GetUint32(ZAL_Message_GetData(request), "count", &count);
  for (uint32_t i = 0; i < count; ++i) sendEvent(i);
  return 0;
}

}  // namespace

int main(int, char** argv) {
  ZAL_ClientOptions options;
  ZAL_Client_GetDefaultOptions(&options);
  zalstrlcpy(options.url, ("file://" + std::string{argv[1]}).c_str(), sizeof options.url);
  options.interval = 1;
  client = ZAL_Client_Create(&options);
  ZAL_ServiceHandle service = ZAL_Service_Create("telemetry");
  ZAL_Service_AddMethod(service, "system", answerStatus, nullptr);
  ZAL_Service_AddMethod(service, "document", answerDocument, nullptr);
  ZAL_Service_AddMethod(service, "events", sendEvents, nullptr);
  ZAL_Client_AddService(client, service);
  ZAL_Client_Start(client);
  pause();
}
