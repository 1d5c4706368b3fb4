#include "metadata_payloader.h"

#include <gst/rtp/gstrtpbasepayload.h>
#include <gst/rtp/gstrtpbuffer.h>

#include <cstring>

namespace {

constexpr guint rtp_clock_rate = 90000;

struct SimcamMetaPay {
        GstRTPBasePayload parent;
};

struct SimcamMetaPayClass {
        GstRTPBasePayloadClass parent_class;
};

GstStaticPadTemplate sink_template = GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS,
                                                             GST_STATIC_CAPS(simcam_metadata_caps));
GstStaticPadTemplate src_template = GST_STATIC_PAD_TEMPLATE(
        "src", GST_PAD_SRC, GST_PAD_ALWAYS,
        GST_STATIC_CAPS("application/x-rtp, media=(string)application, clock-rate=(int)90000, "
                        "encoding-name=(string)VND.ONVIF.METADATA"));

GType simcam_meta_pay_get_type(void);
G_DEFINE_TYPE(SimcamMetaPay, simcam_meta_pay, GST_TYPE_RTP_BASE_PAYLOAD)

gboolean simcam_meta_pay_set_caps(GstRTPBasePayload *payload, GstCaps *)
{
        gst_rtp_base_payload_set_options(payload, "application", TRUE, "VND.ONVIF.METADATA", rtp_clock_rate);
        return gst_rtp_base_payload_set_outcaps(payload, nullptr);
}

GstFlowReturn simcam_meta_pay_handle_buffer(GstRTPBasePayload *payload, GstBuffer *buffer)
{
        GstMapInfo in;
        if (!gst_buffer_map(buffer, &in, GST_MAP_READ)) {
                gst_buffer_unref(buffer);
                return GST_FLOW_ERROR;
        }
        GstBuffer *packet = gst_rtp_base_payload_allocate_output_buffer(payload, static_cast<guint>(in.size), 0, 0);
        GstRTPBuffer rtp = GST_RTP_BUFFER_INIT;
        gst_rtp_buffer_map(packet, GST_MAP_WRITE, &rtp);
        memcpy(gst_rtp_buffer_get_payload(&rtp), in.data, in.size);
        gst_rtp_buffer_set_marker(&rtp, TRUE);
        gst_rtp_buffer_unmap(&rtp);
        GST_BUFFER_PTS(packet) = GST_BUFFER_PTS(buffer);
        gst_buffer_unmap(buffer, &in);
        gst_buffer_unref(buffer);
        return gst_rtp_base_payload_push(payload, packet);
}

void simcam_meta_pay_class_init(SimcamMetaPayClass *klass)
{
        GstElementClass *element = GST_ELEMENT_CLASS(klass);
        gst_element_class_add_static_pad_template(element, &sink_template);
        gst_element_class_add_static_pad_template(element, &src_template);
        gst_element_class_set_static_metadata(element, "PTZ status payloader", "Codec/Payloader/Network/RTP",
                                              "One RTP packet per PTZ status XML fragment", "trelvo");
        GstRTPBasePayloadClass *base = GST_RTP_BASE_PAYLOAD_CLASS(klass);
        base->set_caps = simcam_meta_pay_set_caps;
        base->handle_buffer = simcam_meta_pay_handle_buffer;
}

void simcam_meta_pay_init(SimcamMetaPay *)
{
}

} // namespace

bool simcam_metadata_payloader_register(void)
{
        return gst_element_register(nullptr, "simcammetapay", GST_RANK_NONE, simcam_meta_pay_get_type());
}
