/* What a program in C outside the tree does first. */
#include <cjson/cJSON.h>
#include <stdio.h>
#include <uv.h>
#include <zal/zal.h>

int main(void) {
  ZAL_ClientOptions options;
  ZAL_ObjectHandle object = ZAL_Object_Create();
  ZAL_ClientHandle client;

  ZAL_Client_GetDefaultOptions(&options);
  client = ZAL_Client_Create(&options);
  if (client == NULL || object == NULL || ZAL_GetVersion() != ZAL_VERSION) return 1;
  printf("libzal-client %s, libuv %s, cJSON %s\n", ZAL_VERSION_STRING, uv_version_string(), cJSON_Version());
  ZAL_Object_Destroy(object);
  ZAL_Client_Destroy(client);
  return 0;
}
