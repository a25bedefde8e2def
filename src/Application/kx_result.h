/* The result codes of the exported int functions, in one table. The numbers
 * are the interface's own; the names say which outcome a return means. */
#ifndef KX_APPLICATION_KX_RESULT_H
#define KX_APPLICATION_KX_RESULT_H

namespace kx {

inline constexpr int kOk = 0; /* success */
inline constexpr int kRefused = 1; /* the controller's outcome boolean was false */
inline constexpr int kFailed = -1; /* unknown handle, invalid argument, or the request could not be built or sent */
inline constexpr int kNoReply = -2; /* no matching reply within the timeout */
inline constexpr int kUndecodable = -3; /* the reply was not JSON, or a key was missing, mistyped, out of range */

/* Operation-specific outcomes, each named for the family that returns it. */
inline constexpr int kOtherDevice = -4; /* moves, steps, lift and expansion axes, hands: another device's motion ended */
inline constexpr int kInvalidConfig = -4; /* realtime push, fences, force modes: refused before sending */
inline constexpr int kWrongForceType = -4; /* kx_get_Fz on another force edition */
inline constexpr int kNoFinish = -4; /* program start and gripper waits: no (matching) finish message */
inline constexpr int kSaveFileUnopened = -4; /* drag-teach saving: the file could not be opened */
inline constexpr int kSingleNoBlock = -5; /* blocking forms in single mode with block 0 */
inline constexpr int kFileError = -5; /* program upload: the file could not be read */
inline constexpr int kBadTrajectoryConnect = -6; /* kx_movec: trajectory_connect neither 0 nor 1 */
inline constexpr int kSaveInterrupted = -6; /* drag-teach saving: no point in time, a bad point, or the file closed */

}  // namespace kx

#endif /* KX_APPLICATION_KX_RESULT_H */
