/* message_bus.h: the publish/subscribe message bus. */
#ifndef APPLATFORM_MESSAGE_BUS_H
#define APPLATFORM_MESSAGE_BUS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Publishes `length` bytes under `topic`. Negative: failed. */
int holymsg_publish(const char *topic, const void *data, unsigned int length);

/* Calls `handler(argument)` once after `seconds`, in the bus's own context. */
int holymsg_set_timeout(double seconds, void (*handler)(void *argument), void *argument);

#ifdef __cplusplus
}
#endif

#endif
