/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * The H.264 bitstream writer: makes SEI NAL units that fit a given stream.
 *
 * How a picture timing message is coded depends on the sequence parameter set that is active in the
 * stream: which of its fields are there at all, and how long they are. So a writer is first shown
 * the stream's parameter sets, and then makes NAL units one after the other:
 *
 *     VornH264Sps sps;
 *     vorn_h264_writer_parse_sps (writer, nalu, nalu_size, &sps);
 *     vorn_h264_writer_set_sps (writer, &sps);
 *     ...
 *     vorn_h264_writer_clear (writer);
 *     vorn_h264_writer_set_nal_header (writer, 0, VORN_H264_NAL_UNIT_SEI);
 *     vorn_h264_writer_add_sei (writer, &message);       // as often as there are messages
 *     size = vorn_h264_writer_write (writer, memory, memory_size);
 *
 * The fields carry the names of Rec. ITU-T H.264: parameter sets 7.3.2 and E.1, SEI messages D.1
 * and D.2. Parameter sets are parsed by GStreamer's codec parsers: GStreamer must be initialised.
 *
 * All functions are reentrant; one writer is bound to one thread at a time. Plain functions return
 * 0 on success or a negative errno, -EINVAL for a NULL argument, and leave the writer as it was
 * when they fail. Nothing is allocated for a NAL unit of the size of an earlier one.
 */
#ifndef VORN_H264_WRITER_H
#define VORN_H264_WRITER_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/** nal_unit_type of the units that concern the writer (table 7-1). */
enum {
  VORN_H264_NAL_UNIT_SEI = 6,
  VORN_H264_NAL_UNIT_SPS = 7,
  VORN_H264_NAL_UNIT_PPS = 8,
};

/** The most bytes of SEI messages, before emulation prevention, that one NAL unit may carry. */
#define VORN_H264_WRITER_MAX_SEI_SIZE 65536

/** A writer's context. */
typedef struct _VornH264Writer VornH264Writer;

/** The field lengths that hrd_parameters () gives (E.1.2), in bits, ready for use. */
typedef struct {
  bool present;
  uint8_t cpb_removal_delay_length; /**< 1 to 32 */
  uint8_t dpb_output_delay_length;  /**< 1 to 32 */
  uint8_t time_offset_length;       /**< 0 (no such field) to 31 */
} VornH264Hrd;

/** What a sequence parameter set says that matters for SEI and for timing. */
typedef struct {
  uint8_t seq_parameter_set_id; /**< 0 to 31 */
  uint32_t max_frame_num;       /**< MaxFrameNum, 16 to 65536 */
  bool vui_parameters_present_flag;
  bool timing_info_present_flag;
  uint32_t num_units_in_tick; /**< 0 without timing info */
  uint32_t time_scale;        /**< 0 without timing info */
  VornH264Hrd nal_hrd;
  VornH264Hrd vcl_hrd;
  bool pic_struct_present_flag;
} VornH264Sps;

/** What a picture parameter set says that matters here: which sequence parameter set it uses. */
typedef struct {
  uint8_t pic_parameter_set_id;
  uint8_t seq_parameter_set_id; /**< 0 to 31 */
} VornH264Pps;

/** payloadType of the messages that the writer knows (D.1.1). */
typedef enum {
  VORN_H264_SEI_PIC_TIMING = 1,
  VORN_H264_SEI_USER_DATA_UNREGISTERED = 5,
  VORN_H264_SEI_RECOVERY_POINT = 6,
} VornH264SeiType;

/** recovery_point (D.1.8). */
typedef struct {
  uint32_t recovery_frame_cnt; /**< below MaxFrameNum of the active SPS */
  bool exact_match_flag;
  bool broken_link_flag;
  uint8_t changing_slice_group_idc; /**< 0 to 2 */
} VornH264RecoveryPoint;

/** One clock timestamp of a picture timing message. */
typedef struct {
  uint8_t ct_type; /**< 0 progressive, 1 interlaced, 2 unknown */
  bool nuit_field_based_flag;
  uint8_t counting_type; /**< 0 to 6 */
  bool full_timestamp_flag;
  bool discontinuity_flag;
  bool cnt_dropped_flag;
  uint32_t n_frames;      /**< 0 to 255 */
  bool seconds_flag;      /**< this and the next two: only without full_timestamp_flag */
  bool minutes_flag;      /**< only with seconds_flag */
  bool hours_flag;        /**< only with minutes_flag */
  uint32_t seconds_value; /**< 0 to 59 */
  uint32_t minutes_value; /**< 0 to 59 */
  uint64_t hours_value;   /**< any: a time of day, carried modulo 24 */
  int64_t time_offset;    /**< in units of 1 / time_scale s; must fit time_offset_length bits */
} VornH264ClockTimestamp;

/** pic_timing (D.1.3). */
typedef struct {
  uint32_t cpb_removal_delay;   /**< must fit its length; there only with HRD parameters */
  uint32_t dpb_output_delay;    /**< as above */
  uint8_t pic_struct;           /**< 0 to 8; this and all below only with pic_struct_present_flag */
  bool clock_timestamp_flag[3]; /**< at most NumClockTS (table D-1: 1, 2 or 3 by pic_struct) */
  VornH264ClockTimestamp clock_timestamp[3];
} VornH264PicTiming;

/** user_data_unregistered (D.1.7). The data is copied by the call that takes the message. */
typedef struct {
  uint8_t uuid_iso_iec_11578[16];
  const uint8_t *data; /**< may be NULL when size is 0 */
  size_t size;         /**< bytes after the UUID */
} VornH264UserDataUnregistered;

/** One SEI message. */
typedef struct {
  VornH264SeiType payload_type;
  union {
    VornH264PicTiming pic_timing;
    VornH264UserDataUnregistered user_data_unregistered;
    VornH264RecoveryPoint recovery_point;
  } payload;
} VornH264Sei;

/** Creates a writer that knows no parameter set. The caller owns it; NULL when memory is short. */
VORN_API VornH264Writer *vorn_h264_writer_new (void);

/** Destroys a writer. NULL is accepted. */
VORN_API void vorn_h264_writer_destroy (VornH264Writer *writer);

/**
 * Parses a sequence parameter set: a whole NAL unit of type 7, from its header byte, without start
 * code or length prefix, with its emulation prevention bytes. The writer remembers it for parsing
 * the picture parameter sets that refer to it; what is written changes only with
 * vorn_h264_writer_set_sps. -EINVAL: not a NAL unit of type 7; -EBADMSG: it cannot be parsed.
 */
VORN_API int vorn_h264_writer_parse_sps (VornH264Writer *writer, const uint8_t *nalu, size_t size,
                                         VornH264Sps *sps);

/**
 * Parses a picture parameter set, likewise of type 8. -ENOENT: the sequence parameter set that it
 * refers to has not been parsed by this writer.
 */
VORN_API int vorn_h264_writer_parse_pps (VornH264Writer *writer, const uint8_t *nalu, size_t size,
                                         VornH264Pps *pps);

/**
 * Takes a sequence parameter set over (a copy) and makes it the active one: messages added from now
 * on follow it. It replaces one of the same id. -ERANGE: an id or a length is out of its range.
 */
VORN_API int vorn_h264_writer_set_sps (VornH264Writer *writer, const VornH264Sps *sps);

/**
 * Makes the sequence parameter set that this picture parameter set refers to the active one.
 * -ENOENT: no such sequence parameter set was set; -ERANGE: its id is out of range.
 */
VORN_API int vorn_h264_writer_set_pps (VornH264Writer *writer, const VornH264Pps *pps);

/** Drops the pending NAL unit, header and messages. Parameter sets stay. */
VORN_API int vorn_h264_writer_clear (VornH264Writer *writer);

/**
 * Sets the header of the pending NAL unit. Only SEI is written: nal_unit_type 6 (else -ENOTSUP)
 * with nal_ref_idc 0, as 7.4.1 demands (else -ERANGE).
 */
VORN_API int vorn_h264_writer_set_nal_header (VornH264Writer *writer, uint8_t nal_ref_idc,
                                              uint8_t nal_unit_type);

/**
 * Adds a message to the pending NAL unit, after those already there, coded for the SPS that is
 * active now. A message that fails leaves the earlier ones as they are.
 *
 * Of a picture timing those fields are written for which the active SPS has a place: the delays
 * with HRD parameters (NAL, else VCL), pic_struct and the clock timestamps with
 * pic_struct_present_flag, a time offset of the HRD parameters' length or of 24 bits without them.
 * An SPS without both has no place for the message at all (decoders would stumble over it and lose
 * the messages that follow): it is then left out, 0 is returned, and the log says so once for each
 * time that an SPS is set.
 *
 * -ERANGE: a field's value is out of range or does not fit its length (with a time_offset_length of
 * 0 only a time offset of 0 fits); -ENOENT: a picture timing while no SPS is set; -EINVAL: unknown
 * payload_type, or data NULL with a size; -EMSGSIZE: above VORN_H264_WRITER_MAX_SEI_SIZE.
 */
VORN_API int vorn_h264_writer_add_sei (VornH264Writer *writer, const VornH264Sei *sei);

/**
 * Writes the pending NAL unit, from its header byte, with emulation prevention, without start code
 * or length prefix. Returns its size in bytes (at most capacity). The unit stays pending. Negative:
 * -ENODATA, no header or no message; -ENOSPC, it does not fit (what was written till then is of no
 * use, the memory beyond capacity is untouched).
 */
VORN_API ssize_t vorn_h264_writer_write (VornH264Writer *writer, uint8_t *data, size_t capacity);

VORN_END_DECLS

#endif
