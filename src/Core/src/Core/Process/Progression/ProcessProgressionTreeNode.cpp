#include <Core/Process/Progression/ProcessProgressionTreeNode.h>

#include <Utils/CoreAssert.h>

#include <typeinfo>
#include <utility>
#include <vector>

namespace Orvan::Core::Process::Progression {

ProcessProgressionTreeNode::ProcessProgressionTreeNode() = default;

// Children own their own children, so letting the vector go would destroy a
// chain one call deeper per level, as deep as the tree. Instead each node is
// destroyed once its children have been taken out of it: the stack stays
// flat whatever the depth. Siblings still go in the order they were added.
ProcessProgressionTreeNode::~ProcessProgressionTreeNode()
{
  std::vector<std::unique_ptr<ProcessProgressionTreeNode>> pending;
  const auto takeChildren = [&pending](std::vector<std::unique_ptr<ProcessProgressionTreeNode>>& from) {
    for (auto child = from.rbegin(); child != from.rend(); ++child) {
      pending.push_back(std::move(*child));
    }
    from.clear();
  };
  takeChildren(children);
  while (!pending.empty()) {
    const std::unique_ptr<ProcessProgressionTreeNode> node = std::move(pending.back());
    pending.pop_back();
    takeChildren(node->children);
  }
}

void ProcessProgressionTreeNode::addChild(std::unique_ptr<ProcessProgressionTreeNode>&& child)
{
  CORE_ASSERT(child != nullptr);
  if (child == nullptr) {
    return;
  }
  const std::lock_guard lock(childrenMutex);
  child->parent = this;
  children.push_back(std::move(child));
  childCount.store(children.size(), std::memory_order_release);
}

ProcessProgressionTreeNode* ProcessProgressionTreeNode::operator[](unsigned long long index)
{
  const std::lock_guard lock(childrenMutex);
  return children[static_cast<std::size_t>(index)].get();
}

const ProcessProgressionTreeNode* ProcessProgressionTreeNode::operator[](unsigned long long index) const
{
  const std::lock_guard lock(childrenMutex);
  return children[static_cast<std::size_t>(index)].get();
}

std::shared_ptr<ProcessProgression::ProcessProgressionToken> ProcessProgressionTreeNode::getToken()
{
  auto newToken = std::make_shared<ProcessProgressionToken>(*this);
  // A weak reference is not safe to assign from two threads at once; the
  // node's own lock serialises the tokens handed out.
  const std::lock_guard lock(childrenMutex);
  token = newToken;
  return newToken;
}

namespace {

// The ancestors whose change propagation ran while a change climbed the
// tree on this thread, nearest first; null when no change is climbing.
thread_local std::vector<ProcessProgressionTreeNode*>* climbingChange = nullptr;

// Room for the ancestors of a change that each thread keeps between changes.
constexpr std::size_t KEPT_ANCESTORS = 1024;

} // namespace

double ProcessProgressionTreeNode::captureProgression() const
{
  if (isCompleted()) {
    return 1.0;
  }
  if (childCount.load(std::memory_order_acquire) == 0) {
    return 0.0;
  }
  // Plain nodes below plain nodes are read on an explicit stack rather than
  // by recursion, so that a deep chain cannot exhaust the thread's stack.
  // Children are only ever added, so the children counted when a node is
  // entered stay in place, and its lock is held only to fetch one of them:
  // no reading holds a lock per level of the tree.
  struct Frame {
    const ProcessProgressionTreeNode* node;
    std::size_t count;
    std::size_t next;
    double sum;
  };
  std::vector<Frame> frames;
  frames.push_back({this, childCount.load(std::memory_order_acquire), 0, 0.0});
  for (;;) {
    Frame& frame = frames.back();
    if (frame.next == frame.count) {
      const double finished = frame.sum / static_cast<double>(frame.count);
      frames.pop_back();
      if (frames.empty()) {
        return finished;
      }
      frames.back().sum += finished;
      continue;
    }
    const ProcessProgressionTreeNode* child = (*frame.node)[frame.next++];
    const bool plainNode = typeid(*child) == typeid(ProcessProgressionTreeNode);
    const std::size_t grandchildren = child->childCount.load(std::memory_order_acquire);
    if (plainNode && !child->isCompleted() && grandchildren != 0) {
      frames.push_back({child, grandchildren, 0, 0.0});
    } else {
      // A counter, a completed or childless node, or a node of another kind
      // with a reading of its own.
      frame.sum += child->captureProgression();
    }
  }
}

void ProcessProgressionTreeNode::progressionChanged()
{
  // Observers nearest the root hear first. A change climbs to the root
  // without recursing: every ancestor's own progressionChanged (overridden
  // or not) is called in turn from here and only notes its node; the pokes
  // then go out from the root down to this node.
  if (climbingChange != nullptr) {
    climbingChange->push_back(this);
    return;
  }
  if (parent != nullptr) {
    thread_local std::vector<ProcessProgressionTreeNode*> ancestors;
    ancestors.clear();
    climbingChange = &ancestors;
    try {
      for (ProcessProgressionTreeNode* ancestor = parent; ancestor != nullptr; ancestor = ancestor->parent) {
        ancestor->progressionChanged();
      }
    } catch (...) {
      climbingChange = nullptr;
      throw;
    }
    climbingChange = nullptr;
    for (auto ancestor = ancestors.rbegin(); ancestor != ancestors.rend(); ++ancestor) {
      (*ancestor)->ProgressionObservable::progressionChanged();
    }
    if (ancestors.capacity() > KEPT_ANCESTORS) {
      std::vector<ProcessProgressionTreeNode*>().swap(ancestors); // a deep chain does not pin its memory
    }
  }
  ProgressionObservable::progressionChanged();
}

} // namespace Orvan::Core::Process::Progression
