/* Management registers of Ethernet PHYs and of RTL836x switch ports.
 *
 * `bus_id` names a PHY as the kernel does below /sys/bus/mdio_bus/devices ("BUS:ADDRESS"), a switch
 * port as "BUS:ADDRESS:PORT". Registers are reached through the MII ioctls of a network interface
 * on that bus. */

#ifndef PLATFORM_MDIO_H
#define PLATFORM_MDIO_H

#include <stdint.h>

#include "platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Ports of an RTL836x switch: 0 to 7 are its own PHYs, these are its extension ports. */
enum {
  RTL836X_UTP_PORT0 = 0x0,
  RTL836X_UTP_PORT7 = 0x7,
  RTL836X_EXT_PORT0 = 0x10,
  RTL836X_EXT_PORT1 = 0x11,
  RTL836X_EXT_PORT2 = 0x12,
};

/* What a register reads as when nothing answers on the bus. */
#define RIG_MDIO_NO_ANSWER 0xFFFFu

/* The PHY identifier, register 2 in the upper half and register 3 in the lower one; 0xFFFFFFFF when
 * nothing answers. */
RIG_API uint32_t rig_mdio_getphyid(const char *bus_id);

/* The PHY's address on its bus, 0 to 31; -1 with errno. */
RIG_API int rig_mdio_getphyaddr(const char *bus_id);

/* A register's value; RIG_MDIO_NO_ANSWER, with errno when the bus could not be used. `reg` is 0
 * to 31. */
RIG_API uint16_t rig_mdio_getmiireg(const char *bus_id, uint16_t reg);

/* 0, or -1 with errno. */
RIG_API int rig_mdio_setmiireg(const char *bus_id, uint16_t reg, uint16_t value);

/* The same for a port of an RTL836x switch. */
RIG_API uint16_t rig_mdio_getmiirtl836xreg(const char *bus_id, uint16_t reg);
RIG_API int rig_mdio_setmiirtl836xreg(const char *bus_id, uint16_t reg, uint16_t value);

#ifdef __cplusplus
}
#endif

#endif
