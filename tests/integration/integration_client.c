/* A client of its own process, for the tests that need several: integration_client <url> <service>. It offers the
   method "whoami" and lives until its standard input ends. */
#include <stdio.h>
#include <unistd.h>
#include <zal/zal.h>

static int whoami(ZAL_MessageHandle request, ZAL_MessageHandle response, void* userData) {
  ZAL_ObjectHandle data = ZAL_Object_Create();
  (void)request;
  (void)userData;
  ZAL_Object_AddInt32(data, "pid", (int32_t)getpid());
  ZAL_Message_SetData(response, data);
  return 0;
}

int main(int argc, char** argv) {
  ZAL_ClientOptions options;
  ZAL_ClientHandle client;
  ZAL_ServiceHandle service;
  if (argc != 3) return 2;

  ZAL_Client_GetDefaultOptions(&options);
  zalstrlcpy(options.url, argv[1], sizeof options.url);
  options.interval = 1;
  client = ZAL_Client_Create(&options);
  service = ZAL_Service_Create(argv[2]);
  ZAL_Service_AddMethod(service, "whoami", whoami, NULL);
  ZAL_Client_AddService(client, service);
  ZAL_Client_Start(client);

  while (getchar() != EOF) {
  }
  ZAL_Client_Stop(client);
  ZAL_Client_Destroy(client);
  return 0;
}
