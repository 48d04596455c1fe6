// What the route thread lets the console see: the graph after every edit, the descriptors after
// every action.
#include "Route/RouteImpl.h"

namespace zelk {

void RouteImpl::GraphEdited(const Block* touched) {
  blockViews[touched] = nullptr;
  GraphEdited();
}

void RouteImpl::GraphEdited() {
  edited = true;
  graphOk = false;
}

void RouteImpl::PublishGraph() {
  if (!edited) return;
  auto graph = std::make_shared<GraphView>();
  graph->blocks.reserve(blocks.size());
  graph->links.reserve(links.size());
  for (const Block* block : blocks) {
    std::shared_ptr<const BlockView>& known = blockViews[block];
    if (known == nullptr) {
      auto fresh = std::make_shared<BlockView>();
      fresh->name = block->name;
      fresh->isFirst = block->isFirst;
      fresh->isLast = block->isLast;
      fresh->block = block;
      for (const auto& [index, ep] : block->activeInEps)
        fresh->ins.push_back(ep->link->view);
      for (const auto& [index, ep] : block->activeOutEps)
        fresh->outs.push_back(ep->link->view);
      known = std::move(fresh);
    }
    graph->blocks.push_back(known);
  }
  for (const Link* link : links)
    graph->links.push_back(link->view);
  view->Publish(std::move(graph));
  edited = false;
}

void RouteImpl::PublishDescriptors() {
  for (Link* link : links)
    link->Publish();
}

void* RouteImpl::FindInstance(const std::string& instanceName) const {
  const auto graph = view->Graph();
  for (const auto& block : graph->blocks) {
    if (block->name == instanceName) return const_cast<void*>(block->block);
  }
  for (const auto& link : graph->links) {
    if (link->name == instanceName) return const_cast<void*>(link->link);
  }
  return nullptr;
}

}  // namespace zelk
