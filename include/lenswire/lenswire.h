/* The whole interface of the library. */
#ifndef LENSWIRE_LENSWIRE_H
#define LENSWIRE_LENSWIRE_H

#include "lenswire/cipher.h"
#include "lenswire/command.h"
#include "lenswire/connection.h"
#include "lenswire/host_services.h"
#include "lenswire/list.h"
#include "lenswire/motion.h"
#include "lenswire/protocol.h"
#include "lenswire/ptz_codes.h"
#include "lenswire/records.h"
#include "lenswire/socket.h"
#include "lenswire/stream.h"

#endif
