/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * The camera wire protocol: how a simulated camera gives its frames to a client on this machine.
 *
 * A server listens on a unix socket of type SOCK_SEQPACKET, so every packet is one message. One
 * connection carries one stream:
 *
 *     server                          client
 *       SENSOR  ---------------------->        what the sensor is, at once
 *               <----------------------  REQUEST   rectangle, output size, rate
 *       STREAM + descriptors --------->        the buffers, mapped once (or REFUSAL and the end)
 *       FRAME   ---------------------->        buffer n holds a frame, it is the client's now
 *               <----------------------  RETURN    buffer n is the server's again
 *               <----------------------  STYLE     at any time: how colours are rendered
 *
 * Pixels never travel: frames lie in memory objects (memfd) that the STREAM message carries, sealed
 * against shrinking, so that no mapping can vanish under its reader. A frame is packed RGB, 8 bits
 * each, rows vorn_camera_stride (width) bytes apart, the top row first. When the client holds all
 * buffers, frames are lost and counted; nothing waits for a slow client.
 *
 * Numbers have the machine's byte order; all fields are naturally aligned, reserved ones are zero.
 * Times are nanoseconds of CLOCK_MONOTONIC, the clock of the drone's IMU.
 *
 * All functions are reentrant; vorn_camera_send is thread-safe on one socket.
 */
#ifndef VORN_CAMERA_PROTOCOL_H
#define VORN_CAMERA_PROTOCOL_H

#include <stddef.h>
#include <stdint.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/** First word of every message: "VCAM". */
#define VORN_CAMERA_MAGIC 0x4d414356u
/** Version of this protocol; both sides refuse any other. */
#define VORN_CAMERA_VERSION 1
/** Largest width and height of a sensor, a rectangle or a picture, pixels. */
#define VORN_CAMERA_MAX_SIDE 16384
/** Most bytes of one frame. */
#define VORN_CAMERA_MAX_FRAME_SIZE (UINT64_C (1) << 29)
/** How many buffers a stream may have. */
#define VORN_CAMERA_MIN_BUFFERS 2
#define VORN_CAMERA_MAX_BUFFERS 16
/** Longest exposure and readout, ns. */
#define VORN_CAMERA_MAX_SPAN_NS UINT64_C (10000000000)
/**
 * A frame is sent this long after its last row's exposure ended, or later, ns: what describes the
 * motion during the exposure has then been published.
 */
#define VORN_CAMERA_DELIVERY_NS UINT64_C (15000000)

typedef enum {
  VORN_CAMERA_SENSOR = 1,
  VORN_CAMERA_REQUEST = 2,
  VORN_CAMERA_STREAM = 3,
  VORN_CAMERA_REFUSAL = 4,
  VORN_CAMERA_FRAME = 5,
  VORN_CAMERA_RETURN = 6,
  VORN_CAMERA_STYLE = 7,
} VornCameraMessageType;

/** How colours are rendered; unknown values are rendered as standard. */
typedef enum {
  VORN_CAMERA_STYLE_STANDARD = 0,
  VORN_CAMERA_STYLE_FLAT = 1,  /**< low contrast, for grading */
  VORN_CAMERA_STYLE_VIVID = 2, /**< high contrast */
} VornCameraStyle;

typedef struct {
  uint32_t magic;
  uint16_t version;
  uint16_t type; /**< VornCameraMessageType */
  uint32_t size; /**< of the whole message, bytes */
  uint32_t reserved;
} VornCameraHeader;

/** Server, first message: the sensor. */
typedef struct {
  VornCameraHeader header;
  uint32_t width, height;                    /**< pixels */
  uint32_t rate_numerator, rate_denominator; /**< its own rate, frames per second */
  double horizontal_fov_rad;                 /**< of the whole width; square pixels */
  uint64_t exposure_ns;                      /**< of each row */
  uint64_t readout_ns;                       /**< from the sensor's top edge to its bottom */
} VornCameraSensor;

/** Client: what it wants. Sent once on a connection. */
typedef struct {
  VornCameraHeader header;
  /** The part of the sensor that is wanted, sensor pixels; right and bottom within the sensor. */
  uint32_t left, top, rect_width, rect_height;
  /** The size at which it is rendered, pixels. */
  uint32_t width, height;
  /** Frames per second: 1/100 to 1000. */
  uint32_t rate_numerator, rate_denominator;
  uint32_t buffers; /**< how many frames the client may hold at a time */
  uint32_t style;   /**< VornCameraStyle */
} VornCameraRequest;

/**
 * Server: the stream begins. Carries one descriptor for each buffer.
 *
 * Geometry: a point at (x right, y down, z forward) of the camera is in the picture at
 * (center_x + focal_x * x / z, center_y + focal_y * y / z), pixels, the picture's top left corner
 * being (0, 0) and the middle of its first pixel (0.5, 0.5).
 */
typedef struct {
  VornCameraHeader header;
  uint32_t buffers;
  uint32_t stride;     /**< bytes from row to row: vorn_camera_stride (width) */
  uint64_t frame_size; /**< bytes of a frame at the start of each buffer: stride * height */
  double focal_x, focal_y;
  double center_x, center_y;
  uint64_t latency_ns; /**< from a frame's capture time to when it is sent, at least */
} VornCameraStream;

/** Server: the request is refused; it closes the connection. */
typedef struct {
  VornCameraHeader header;
  uint32_t code; /**< an errno value */
  uint32_t reserved;
  char text[200]; /**< why, ends with a zero */
} VornCameraRefusal;

/**
 * Server: a frame. The point that lies the fraction v of the picture's height below its top edge
 * is exposed from capture_ns + v * readout_ns on, for exposure_ns.
 */
typedef struct {
  VornCameraHeader header;
  uint32_t buffer; /**< which of the stream's buffers holds it */
  uint32_t reserved;
  uint64_t sequence;    /**< the frame's place on the rate's grid; grows, gaps are lost frames */
  uint64_t capture_ns;  /**< when the exposure of the picture's top edge begins; grows */
  uint64_t exposure_ns; /**< of each row */
  uint64_t readout_ns;  /**< from the picture's top edge to its bottom edge */
  uint64_t lost;        /**< frames of this stream that were lost so far */
} VornCameraFrame;

/** Client: the server may use the buffer again. */
typedef struct {
  VornCameraHeader header;
  uint32_t buffer;
  uint32_t reserved;
} VornCameraReturn;

/** Client: another rendering of colours from the next frame on. */
typedef struct {
  VornCameraHeader header;
  uint32_t style; /**< VornCameraStyle */
  uint32_t reserved;
} VornCameraStyleChange;

typedef union {
  VornCameraHeader header;
  VornCameraSensor sensor;
  VornCameraRequest request;
  VornCameraStream stream;
  VornCameraRefusal refusal;
  VornCameraFrame frame;
  VornCameraReturn give_back;
  VornCameraStyleChange style;
} VornCameraMessage;

/** Room for a reason in words. */
#define VORN_CAMERA_REASON_SIZE 160
typedef struct {
  char text[VORN_CAMERA_REASON_SIZE];
} VornCameraReason;

/** Bytes from one row of a picture to the next: three a pixel, rounded up to a multiple of four. */
static inline uint32_t vorn_camera_stride (uint32_t width)
{
  return (width * 3u + 3u) & ~3u;
}

/** Zeroes the message and fills its header in. */
VORN_API void vorn_camera_message_init (VornCameraMessage *message, VornCameraMessageType type);

/**
 * Checks a received packet and copies it out. Everything that can be judged from the message alone
 * is: a message that passes has every number in its documented range. Returns 0, or -EPROTO with
 * the reason. message and reason are written only on their own outcome.
 */
VORN_API int vorn_camera_message_parse (const void *data, size_t size, unsigned n_fds,
                                        VornCameraMessage *message, VornCameraReason *reason);

/**
 * Sends a message whose header is filled in, with descriptors (at most VORN_CAMERA_MAX_BUFFERS,
 * still the caller's). Never blocks, never raises SIGPIPE. Returns 0, -EAGAIN when the socket is
 * full, another negative errno when the connection is gone.
 */
VORN_API int vorn_camera_send (int socket, const VornCameraMessage *message, const int *fds,
                               unsigned n_fds);

/**
 * Receives a message with its descriptors without blocking. fds has room for
 * VORN_CAMERA_MAX_BUFFERS; they are the caller's (close on exec). Returns 1 with a message that
 * passed vorn_camera_message_parse; 0 when the peer has closed; -EAGAIN when none is there;
 * -EPROTO with the reason for a packet that is no message (its descriptors are closed); another
 * negative errno when the connection is gone.
 */
VORN_API int vorn_camera_receive (int socket, VornCameraMessage *message, int *fds, unsigned *n_fds,
                                  VornCameraReason *reason);

/**
 * Whether size bytes of this descriptor can be mapped and read without fear of SIGBUS: it is a
 * memory object sealed against shrinking and at least that large. Returns 0, or -EPROTO with the
 * reason.
 */
VORN_API int vorn_camera_check_memory (int fd, uint64_t size, VornCameraReason *reason);

VORN_END_DECLS

#endif
