/* The whole interface of the library. */
#ifndef LENSWIRE_LENSWIRE_H
#define LENSWIRE_LENSWIRE_H

#include "lenswire/cipher.h"
#include "lenswire/clock.h"
#include "lenswire/command.h"
#include "lenswire/connection.h"
#include "lenswire/cruise.h"
#include "lenswire/encoding.h"
#include "lenswire/fisheye.h"
#include "lenswire/host_objects.h"
#include "lenswire/host_services.h"
#include "lenswire/host_tables.h"
#include "lenswire/list.h"
#include "lenswire/motion.h"
#include "lenswire/platform.h"
#include "lenswire/protocol.h"
#include "lenswire/ptz.h"
#include "lenswire/ptz_codes.h"
#include "lenswire/records.h"
#include "lenswire/settings.h"
#include "lenswire/socket.h"
#include "lenswire/stream.h"
#include "lenswire/upgrade.h"

#endif
