// The chain as libavfilter's `anull`, between its own buffer source and sink.
extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

#include <initializer_list>
#include <memory>

#include "ZelkGraph.h"

using namespace bench;

namespace {

struct FilterGraph {
  explicit FilterGraph(std::size_t filters) {
    source = Create("abuffer",
                    "time_base=1/48000:sample_rate=48000:sample_fmt=s16:"
                    "channel_layout=stereo");
    AVFilterContext* previous = source;
    for (std::size_t i = 0; i < filters; ++i)
      previous = Follow(previous, Create("anull", nullptr));
    sink = Follow(previous, Create("abuffersink", nullptr));
    Require(avfilter_graph_config(graph, nullptr) >= 0, "avfilter_graph_config");

    input->format = AV_SAMPLE_FMT_S16;
    input->sample_rate = 48000;
    input->nb_samples = SAMPLES;
    av_channel_layout_default(&input->ch_layout, CHANNELS);
    Require(av_frame_get_buffer(input, 0) >= 0, "av_frame_get_buffer");
  }

  AVFilterContext* Create(const char* filter, const char* args) {
    AVFilterContext* context = nullptr;
    const int ret = avfilter_graph_create_filter(&context, avfilter_get_by_name(filter), nullptr,
                                                 args, nullptr, graph);
    Require(ret >= 0, filter);
    return context;
  }

  static AVFilterContext* Follow(AVFilterContext* from, AVFilterContext* to) {
    Require(avfilter_link(from, 0, to, 0) == 0, "avfilter_link");
    return to;
  }

  void Frame() {
    Require(av_buffersrc_add_frame_flags(source, input, AV_BUFFERSRC_FLAG_KEEP_REF) >= 0,
            "av_buffersrc_add_frame");
    Require(av_buffersink_get_frame(sink, output) >= 0, "av_buffersink_get_frame");
    av_frame_unref(output);
  }

  AVFilterGraph* graph = avfilter_graph_alloc();
  AVFilterContext* source = nullptr;
  AVFilterContext* sink = nullptr;
  AVFrame* input = av_frame_alloc();
  AVFrame* output = av_frame_alloc();
};

}  // namespace

void AddChainOfAvfilter() {
  // Its cost per filter grows with the graph; beyond this a slice takes too long.
  for (const std::size_t blocks : std::initializer_list<std::size_t>{8, 32, 128, 512}) {
    Add("chain/libavfilter anull/" + std::to_string(blocks), [blocks] {
      auto graph = std::make_shared<FilterGraph>(blocks);
      return OnThisThread([graph] { graph->Frame(); });
    });
  }
}
