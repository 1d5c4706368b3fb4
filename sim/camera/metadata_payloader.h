// An RTP payloader for the metadata stream: each buffer of PTZ status XML becomes exactly
// one RTP packet (marker set), so every packet can be read on its own, as the camera's
// own stream has it. Caps out: application/x-rtp, media=application,
// encoding-name=VND.ONVIF.METADATA, clock-rate=90000.
#pragma once

#include <gst/gst.h>

// Caps of the XML buffers the payloader takes.
constexpr char simcam_metadata_caps[] = "application/x-sim-ptz-status";

// Registers the element "simcammetapay" with this process's GStreamer (after gst_init).
bool simcam_metadata_payloader_register(void);
