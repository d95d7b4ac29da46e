/* Everything that libzal-client offers, in one include. */
#ifndef ZAL_H
#define ZAL_H

#include <zal/zal_client.h>
#include <zal/zal_eventloop.h>
#include <zal/zal_ipc.h>
#include <zal/zal_ipccommand.h>
#include <zal/zal_json.h>
#include <zal/zal_log.h>
#include <zal/zal_message.h>
#include <zal/zal_object.h>
#include <zal/zal_runtime.h>
#include <zal/zal_system.h>
#include <zal/zal_tpl.h>
#include <zal/zal_uri.h>
#include <zal/zal_version.h>

#endif
