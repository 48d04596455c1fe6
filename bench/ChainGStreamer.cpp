// The chain as GStreamer's `identity` elements, driven on the measuring thread: buffers enter at a
// pad of ours and leave at another. The buffer itself is made once.
#include <gst/gst.h>

#include <initializer_list>
#include <memory>

#include "ZelkGraph.h"

using namespace bench;

namespace {

GstFlowReturn Take(GstPad*, GstObject*, GstBuffer* buffer) {
  gst_buffer_unref(buffer);
  return GST_FLOW_OK;
}

gboolean TakeEvent(GstPad*, GstObject*, GstEvent* event) {
  gst_event_unref(event);
  return TRUE;
}

struct Pipeline {
  explicit Pipeline(std::size_t elements) {
    GstPad* previous = source;
    for (std::size_t i = 0; i < elements; ++i) {
      GstElement* element = gst_element_factory_make("identity", nullptr);
      Require(element != nullptr, "identity");
      GstPad* in = gst_element_get_static_pad(element, "sink");
      Require(gst_pad_link(previous, in) == GST_PAD_LINK_OK, "gst_pad_link");
      gst_element_set_state(element, GST_STATE_PLAYING);
      previous = gst_element_get_static_pad(element, "src");
    }
    gst_pad_set_chain_function(sink, Take);
    gst_pad_set_event_function(sink, TakeEvent);
    gst_pad_set_active(source, TRUE);
    gst_pad_set_active(sink, TRUE);
    Require(gst_pad_link(previous, sink) == GST_PAD_LINK_OK, "gst_pad_link");

    gst_pad_push_event(source, gst_event_new_stream_start("bench"));
    GstCaps* caps =
        gst_caps_from_string("audio/x-raw,format=S16LE,layout=interleaved,rate=48000,channels=2");
    gst_pad_push_event(source, gst_event_new_caps(caps));
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_pad_push_event(source, gst_event_new_segment(&segment));
  }

  void Frame() {
    Require(gst_pad_push(source, gst_buffer_ref(buffer)) == GST_FLOW_OK, "gst_pad_push");
  }

  GstPad* source = gst_pad_new("source", GST_PAD_SRC);
  GstPad* sink = gst_pad_new("sink", GST_PAD_SINK);
  GstBuffer* buffer = gst_buffer_new_allocate(nullptr, SAMPLES* CHANNELS * 2, nullptr);
};

}  // namespace

void AddChainOfGStreamer() {
  // An element calls the next: longer chains would need a larger stack.
  for (const std::size_t blocks : std::initializer_list<std::size_t>{8, 32, 128, 512, 2048}) {
    Add("chain/GStreamer identity/" + std::to_string(blocks), [blocks] {
      gst_init(nullptr, nullptr);
      auto pipeline = std::make_shared<Pipeline>(blocks);
      return OnThisThread([pipeline] { pipeline->Frame(); });
    });
  }
}
