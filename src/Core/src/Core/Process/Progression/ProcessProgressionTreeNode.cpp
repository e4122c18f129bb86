#include <Core/Process/Progression/ProcessProgressionTreeNode.h>

#include <Utils/CoreAssert.h>

#include <typeinfo>
#include <utility>
#include <vector>

namespace Orvan::Core::Process::Progression {

ProcessProgressionTreeNode::ProcessProgressionTreeNode() = default;

namespace {

// How many tree levels this thread may have on its stack at once, counting
// both a tree being destroyed (one destructor per level) and a change
// climbing to the root (one progressionChanged per level). Any tree up to
// this depth is destroyed and notified one nested call per level; only a
// deeper one is handled level by level from a loop, so that no depth a host
// can build overflows the stack.
constexpr std::size_t LEVELS_ON_THE_STACK = 10000;

thread_local std::size_t levelsOnStack = 0;

// Whether the level below the innermost one on this thread's stack may
// still be entered by a nested call.
bool roomForOneMoreLevel()
{
  return levelsOnStack < LEVELS_ON_THE_STACK;
}

// A tree whose destruction started on this thread from its topmost node,
// with the subtrees that lay too deep to be destroyed on the stack, in the
// order they were reached.
struct TreeDestruction {
  ProcessProgressionTreeNode* top;
  std::vector<std::unique_ptr<ProcessProgressionTreeNode>> tooDeep;
};

thread_local TreeDestruction* ongoingDestruction = nullptr;
// The node whose children are being destroyed, innermost on this thread.
thread_local const ProcessProgressionTreeNode* destroyingChildrenOf = nullptr;

} // namespace

// By the time this runs, the destructor bodies of the node's own class and of
// its subclasses are done: they ran while the node was whole. Its children
// now go, in the order they were added, each through its virtual destructor,
// while this node's base (its completion, token and observers) still
// exists, as it does for every ancestor: a child may complete itself on its
// way out, and the change climbs through live nodes.
//
// A child's destruction is one nested call per level. Past the depth the
// stack holds, a node hands its children to the node whose destruction
// started the whole thing (the top, still alive further up the stack), which
// becomes their parent and destroys them after its other descendants, from a
// loop. So each of them is still whole when its destructor runs and climbs to
// live ancestors; only the nodes that stood between the top and them are gone
// by then.
//
// The frames repeated once per level, here and in progressionChanged, hold
// no local whose address is taken, so that a sanitizer keeps them as small
// as they are.
ProcessProgressionTreeNode::~ProcessProgressionTreeNode()
{
  // The node reads as childless while its children go.
  childCount.store(0, std::memory_order_release);
  if (children.empty()) {
    return;
  }
  ++levelsOnStack;
  TreeDestruction* const outer = ongoingDestruction;
  const ProcessProgressionTreeNode* const outerNode = destroyingChildrenOf;
  TreeDestruction* own = nullptr;
  if (outer == nullptr || parent == nullptr || parent != outerNode) {
    own = new TreeDestruction{this, {}};
    ongoingDestruction = own;
  }
  destroyingChildrenOf = this;
  const bool nested = roomForOneMoreLevel();
  for (std::size_t index = 0; index < children.size(); ++index) {
    if (nested) {
      delete children[index].release();
    } else {
      children[index]->parent = ongoingDestruction->top;
      ongoingDestruction->tooDeep.push_back(std::move(children[index]));
    }
  }
  if (own != nullptr) {
    // Later subtrees join the list while earlier ones go.
    for (std::size_t next = 0; next < own->tooDeep.size(); ++next) {
      destroyingChildrenOf = this;
      delete own->tooDeep[next].release();
    }
    delete own;
  }
  ongoingDestruction = outer;
  destroyingChildrenOf = outerNode;
  --levelsOnStack;
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

// Set just before an ancestor's progressionChanged is called from the loop
// that notifies the ancestors of a chain too deep for the stack: that
// ancestor's own ancestors have already been told. Taken by the first
// propagation that starts on this thread.
thread_local const ProcessProgressionTreeNode* ancestorsAlreadyTold = nullptr;

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
  const bool climbed = ancestorsAlreadyTold == this;
  ancestorsAlreadyTold = nullptr;
  if (!climbed && parent != nullptr) {
    ++levelsOnStack;
    try {
      if (roomForOneMoreLevel()) {
        // The parent's own propagation, virtual, reaches the root first.
        parent->progressionChanged();
      } else {
        tellAncestorsFromTheRootDown(parent);
      }
    } catch (...) {
      --levelsOnStack;
      throw;
    }
    --levelsOnStack;
  }
  ProgressionObservable::progressionChanged();
}

// The ancestors of a chain deeper than the stack holds: each one's
// progressionChanged (overridden or not) is called from here, the root's
// first, and does not climb again.
void ProcessProgressionTreeNode::tellAncestorsFromTheRootDown(ProcessProgressionTreeNode* nearest)
{
  std::vector<ProcessProgressionTreeNode*> ancestors;
  for (ProcessProgressionTreeNode* ancestor = nearest; ancestor != nullptr; ancestor = ancestor->parent) {
    ancestors.push_back(ancestor);
  }
  for (auto ancestor = ancestors.rbegin(); ancestor != ancestors.rend(); ++ancestor) {
    ancestorsAlreadyTold = *ancestor;
    (*ancestor)->progressionChanged();
    ancestorsAlreadyTold = nullptr; // an override that did not pass the change on left it set
  }
}

} // namespace Orvan::Core::Process::Progression
