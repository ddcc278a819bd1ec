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
#include "lenswire/version.h"

/* A pointer type for each export, for hosts that load the library by dlopen and link with nothing of it. It
 * comes from the declaration, so the two cannot drift apart; nothing is called or linked by naming it.
 *
 *     LENSWIRE_FUNCTION(PC_InitCtx) init = LENSWIRE_FIND(library, PC_InitCtx);
 *     if (init != NULL && init() == 0) ...
 *
 * An object is found in the same way, by its address: (*LENSWIRE_FIND(library, arrayfd))[0]. A program that
 * is linked with the library reaches objects by dlsym too, or from position-independent code: else it may get
 * a copy of its own that the library never writes. */
#define LENSWIRE_FUNCTION(name) __typeof__(&name)

/* dlsym for a name of this interface, as a pointer of its type, or null. For files that include dlfcn.h. */
#define LENSWIRE_FIND(library, name) (__extension__(LENSWIRE_FUNCTION(name)) dlsym(library, #name))

#endif
