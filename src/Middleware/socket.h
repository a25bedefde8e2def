/* One TCP connection to a controller, carried with its own table of operations. */
#ifndef KX_MIDDLEWARE_SOCKET_H
#define KX_MIDDLEWARE_SOCKET_H

#include <stdint.h>

#include "kx_structures.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Record for ip/port with the operations filled in; does not connect.
 * Null when ip is null or 21+ characters, or port < 1. */
KX_API kx_socket_handle* kx_socket_handle_init(const char* ip, int port);
/* Connects; returns the descriptor, or -1 socket, -2 option, -3 connect, -4 non-blocking failure. */
KX_API int socket_connect(kx_socket_handle* handle);
KX_API int socket_send(kx_socket_handle* handle, uint8_t* bytes, int len);
KX_API int socket_block_send(kx_socket_handle* handle, uint8_t* bytes, int len);
KX_API int socket_receive(kx_socket_handle* handle, uint8_t* bytes, int len);
/* Despite the name, never blocks: count, -2 nothing/error, -1 peer closed. */
KX_API int socket_blocking_recive(kx_socket_handle* handle, uint8_t* bytes, int len);
KX_API int socket_close(kx_socket_handle* handle);
KX_API int kx_socket_handle_destroy(kx_socket_handle* handle);

#ifdef __cplusplus
}

namespace kx {
/* The descriptor, read atomically: the receive thread clears it when the peer closes. */
inline int socket_fd(const kx_socket_handle* handle) {
    return handle ? __atomic_load_n(&handle->socket_id, __ATOMIC_ACQUIRE) : -1;
}
inline void set_socket_fd(kx_socket_handle* handle, int fd) { __atomic_store_n(&handle->socket_id, fd, __ATOMIC_RELEASE); }
/* The waiting send of socket_block_send, telling how many bytes left: 0 when
 * all of them did, -2 on an error or a peer that takes nothing for ~3 s. */
int send_counted(kx_socket_handle* handle, const uint8_t* bytes, size_t len, size_t* sent);
}  // namespace kx
#endif

#endif /* KX_MIDDLEWARE_SOCKET_H */
