#include <Core/Process/Progression/ProcessProgressionTreeNode.h>

#include <Utils/CoreAssert.h>

#include <utility>

namespace Orvan::Core::Process::Progression {

ProcessProgressionTreeNode::ProcessProgressionTreeNode() = default;

ProcessProgressionTreeNode::~ProcessProgressionTreeNode() = default;

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
  token = newToken;
  return newToken;
}

double ProcessProgressionTreeNode::captureProgression() const
{
  if (isCompleted()) {
    return 1.0;
  }
  if (childCount.load(std::memory_order_acquire) == 0) {
    return 0.0;
  }
  // Parent before child: each child takes its own lock inside this one.
  const std::lock_guard lock(childrenMutex);
  double sum = 0.0;
  for (const std::unique_ptr<ProcessProgressionTreeNode>& child : children) {
    sum += child->captureProgression();
  }
  return sum / static_cast<double>(children.size());
}

void ProcessProgressionTreeNode::progressionChanged()
{
  // Up to the root first, so that the observers nearest the root hear first.
  if (parent != nullptr) {
    parent->progressionChanged();
  }
  ProgressionObservable::progressionChanged();
}

} // namespace Orvan::Core::Process::Progression
