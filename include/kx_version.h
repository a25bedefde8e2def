/**
 * @file kx_version.h
 * @brief Version of libapi_c, in step with the CMake project version (a test checks it).
 */
#ifndef KX_VERSION_H
#define KX_VERSION_H

#define KX_API_VERSION_MAJOR 1 /**< incremented on incompatible interface changes */
#define KX_API_VERSION_MINOR 0 /**< incremented on compatible additions */
#define KX_API_VERSION_PATCH 6 /**< incremented on fixes */
#define KX_API_VERSION_STRING "1.0.6" /**< "MAJOR.MINOR.PATCH", as kx_api_version() returns */
#define KX_ALGO_VERSION_STRING "1.5.1-4decf769" /**< kinematics library, as kx_algo_version() returns */

#endif /* KX_VERSION_H */
