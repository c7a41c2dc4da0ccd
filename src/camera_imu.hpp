// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The camera IMU reader: one thread that reads the camera's gyroscope through libiio, turns its
// samples into camera attitudes and puts those on the blackboard.
#ifndef CAMERA_IMU_HPP
#define CAMERA_IMU_HPP

#include <glib.h>

struct CameraImu;
struct ReferenceAttitude;

/**
 * Creates a reader and starts its thread. NULL (logged) without blackboard, telemetry, memory, IIO
 * context or trigger. A gyroscope that cannot be set up only logs: the reader then has nothing to
 * read and its thread ends at once. The context is libiio's default one (environment variable
 * IIOD_REMOTE).
 *
 * A process that uses a network context must ignore SIGPIPE: libiio sends without a thought for it.
 */
CameraImu *camera_imu_new (void);

/** Stops the thread, within a block of samples or at once when it waits for a server, and frees the
 * reader. */
void camera_imu_free (CameraImu *reader);

/**
 * The latest reference attitude of the drone, x, y, z, w. FALSE while none was published, or
 * (logged) when the bus fails.
 */
gboolean camera_imu_get_last_reference_attitude (ReferenceAttitude *consumer, gfloat *quaternion);

#endif
