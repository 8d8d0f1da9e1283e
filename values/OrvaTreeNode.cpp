#include <ovkit/OrvaTreeNode.h>

#include <ovkit/OrvaLogging.h>
#include <ovkit/OrvaStringUtilities.h>
#include <ovkit/OrvaTokenizer.h>

#include <algorithm>
#include <cstring>
#include <typeinfo>

namespace OrvaSupport
{

template class OrvaSmartPointer<OrvaTreeNode>;

namespace
{

typedef OrvaSmartPointer<OrvaTreeNode> NodePointer;

/// Removes the first entry of `path` and returns it trimmed of blanks.
std::string takeFirstKey(std::vector<std::string>& path)
{
    std::string key = OrvaStringUtilities::trim(path.front(), " ", OrvaStringUtilities::TrimBoth);
    path.erase(path.begin());
    return key;
}

/// `text` cut at runs of `delimiters`; a null `delimiters` cuts nothing.
std::vector<std::string> splitPath(const std::string& text, const char* delimiters)
{
    std::vector<std::string> path;
    OrvaTokenizer(text, std::string(delimiters ? delimiters : ""), path);
    return path;
}

/// A plain node of the tree's own making. The test is by the type's name, so
/// a node of a client's class whose name holds the same text counts as one.
bool isPlaceholder(const OrvaTreeNode& node)
{
    return std::strstr(typeid(node).name(), "OrvaTreeNode") != nullptr;
}

} // namespace

OrvaTreeNode::OrvaTreeNode() : m_pParent(nullptr) {}

OrvaTreeNode::OrvaTreeNode(const std::string& key) : m_sKey(key), m_pParent(nullptr) {}

OrvaTreeNode::OrvaTreeNode(const OrvaTreeNode& other)
    : OrvaObjectBase(other), OrvaCollaborator(other), m_vChildren(other.m_vChildren), m_sKey(other.m_sKey),
      m_pParent(other.m_pParent)
{
}

OrvaTreeNode& OrvaTreeNode::operator=(const OrvaTreeNode& other)
{
    // The bases are left alone: assigning to a node that smart pointers hold
    // must not reset its count.
    if (this != &other)
    {
        m_vChildren = other.m_vChildren;
        m_sKey = other.m_sKey;
        m_pParent = other.m_pParent;
    }
    return *this;
}

OrvaTreeNode& OrvaTreeNode::operator=(const std::string& key)
{
    setKey(key);
    return *this;
}

OrvaTreeNode::~OrvaTreeNode() noexcept(false) {}

const std::string& OrvaTreeNode::getKey() const
{
    return m_sKey;
}

void OrvaTreeNode::setKey(const std::string& key)
{
    m_sKey = key;
}

OrvaSmartPointer<OrvaTreeNode> OrvaTreeNode::operator[](int index)
{
    return m_vChildren[index];
}

OrvaSmartPointer<OrvaTreeNode> OrvaTreeNode::getNode(const std::string& key)
{
    std::vector<NodePointer>::iterator child = findChild(key);
    return child != m_vChildren.end() ? *child : NodePointer();
}

std::vector<OrvaSmartPointer<OrvaTreeNode>>::iterator OrvaTreeNode::findChild(const std::string& key)
{
    return std::find_if(m_vChildren.begin(), m_vChildren.end(),
                        [&key](const NodePointer& child) { return child->m_sKey == key; });
}

OrvaSmartPointer<OrvaTreeNode> OrvaTreeNode::getNode(std::vector<std::string>& path)
{
    if (path.empty())
        return NodePointer();
    NodePointer child = getNode(takeFirstKey(path));
    if (!child || path.empty())
        return child;
    return child->getNode(path);
}

OrvaSmartPointer<OrvaTreeNode> OrvaTreeNode::getNode(const std::string& path, const char* delimiters)
{
    std::vector<std::string> entries = splitPath(path, delimiters);
    return getNode(entries);
}

OrvaSmartPointer<OrvaTreeNode> OrvaTreeNode::add(OrvaSmartPointer<OrvaTreeNode> node)
{
    if (!node)
        return node;
    std::vector<NodePointer>::iterator place = m_vChildren.begin();
    while (place != m_vChildren.end() && !((*place)->m_sKey > node->m_sKey))
        ++place;
    m_vChildren.insert(place, node);
    return node;
}

OrvaSmartPointer<OrvaTreeNode> OrvaTreeNode::add(OrvaSmartPointer<OrvaTreeNode> node,
                                                 std::vector<std::string>& path)
{
    if (!node || path.empty())
        return NodePointer();
    std::string key = takeFirstKey(path);
    NodePointer child = getNode(key);
    if (!path.empty())
    {
        if (!child)
            child = add(NodePointer(new OrvaTreeNode(key)));
        return child->add(node, path);
    }
    if (!child)
    {
        node->setKey(key);
        return add(node);
    }
    if (!isPlaceholder(*child))
        return child;
    return replacePlaceholder(child, node, key);
}

OrvaSmartPointer<OrvaTreeNode> OrvaTreeNode::add(OrvaSmartPointer<OrvaTreeNode> node, const char* delimiters)
{
    if (!node)
        return node;
    std::vector<std::string> path = splitPath(node->m_sKey, delimiters);
    return add(node, path);
}

OrvaSmartPointer<OrvaTreeNode> OrvaTreeNode::replacePlaceholder(OrvaSmartPointer<OrvaTreeNode> old,
                                                                OrvaSmartPointer<OrvaTreeNode> node,
                                                                const std::string& key)
{
    // `old` keeps the placeholder alive while its children move and after it
    // has left this node's children. It is removed by identity: `node` may
    // already stand among them under the same key. The children are taken
    // through a copy, since `old` may be `node` itself: such a node hands its
    // children to itself and then loses them with the placeholder's list.
    node->setKey(key);
    const std::vector<NodePointer> adopted(old->m_vChildren);
    node->m_vChildren.insert(node->m_vChildren.end(), adopted.begin(), adopted.end());
    old->m_vChildren.clear();
    std::vector<NodePointer>::iterator place = std::find(m_vChildren.begin(), m_vChildren.end(), old);
    if (place != m_vChildren.end())
        m_vChildren.erase(place);
    return add(node);
}

void OrvaTreeNode::insert(int index, OrvaSmartPointer<OrvaTreeNode> node)
{
    if (!node)
        return;
    m_vChildren.insert(m_vChildren.begin() + index, node);
    node->m_pParent = this;
}

void OrvaTreeNode::erase(const std::string& key)
{
    std::vector<NodePointer>::iterator child = findChild(key);
    if (child != m_vChildren.end())
        m_vChildren.erase(child);
}

void OrvaTreeNode::erase(int index)
{
    m_vChildren.erase(m_vChildren.begin() + index);
}

void OrvaTreeNode::print(int level)
{
    if (!OrvaLogging::isAccessAllowed() || OrvaLogging::getInstance()->getGlobalLogLevel() != 9)
        return;
    printGuts(level);
    // By index, reading the size anew: a printGuts of a client's may change
    // the children it is shown.
    for (std::vector<NodePointer>::size_type i = 0; i < m_vChildren.size(); ++i)
    {
        NodePointer child = m_vChildren[i];
        child->print(level + 1);
    }
}

void OrvaTreeNode::printGuts(int level)
{
    if (!OrvaLogging::isAccessAllowed())
        return;
    OrvaLogging& log = *OrvaLogging::getInstance();
    log << setloglevel(9);
    for (int i = 0; i < level; ++i)
        log << "    ";
    log << "OrvaTreeNode::print: Key = " << m_sKey << endrecord;
}

} // namespace OrvaSupport
