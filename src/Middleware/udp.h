/* Registry of the local UDP ports the controllers push realtime state to. */
#ifndef KX_MIDDLEWARE_UDP_H
#define KX_MIDDLEWARE_UDP_H

#include "kx_structures.h"

#ifdef __cplusplus
extern "C" {
#endif

KX_API kx_udp_handle* kx_udp_init(void);
/* Bound datagram socket on all local addresses at port, never shared with
 * another socket; -2 on failure. */
KX_API int kx_udp_create_connect(int port);
/* 0 new port bound, 1 user added to an existing port, -1 bind failed, -2 registry full. */
KX_API int kx_udp_add_port(kx_udp_handle* handle, int port);
KX_API int kx_udp_delete_port(kx_udp_handle* handle, int port);
/* Closes a released port's socket (released ports do not stay bound). */
KX_API int kx_udp_close(int udp_id);

#ifdef __cplusplus
}

#include <mutex>

namespace kx::udp {
/* Guards the entries of every registry; recursive so that a realtime callback
 * may reconfigure the push (and so the registry) from the receive thread. */
std::recursive_mutex& registry_mutex();
/* Readable when the receive thread should look at the stop flag. */
int wake_fd();
/* Watches every bound port and the wake-up descriptor. */
int epoll_fd();
void wake();
void drain_wake();
}  // namespace kx::udp
#endif

#endif /* KX_MIDDLEWARE_UDP_H */
