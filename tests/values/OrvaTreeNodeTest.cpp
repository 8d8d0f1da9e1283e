#include <ovkit/OrvaTreeNode.h>

#include "support/LogTestHelpers.h"

#include <gtest/gtest.h>

using namespace OrvaSupport;

typedef OrvaSmartPointer<OrvaTreeNode> Node;

// Clients' nodes: the first type name does not contain the placeholder
// text, the second does.
struct Folder : OrvaTreeNode
{
    explicit Folder(const std::string& key) : OrvaTreeNode(key) {}
};
struct MyOrvaTreeNode : OrvaTreeNode
{
    explicit MyOrvaTreeNode(const std::string& key) : OrvaTreeNode(key) {}
};

namespace
{

std::string keysOf(Node node, int count)
{
    std::string keys;
    for (int i = 0; i < count; ++i)
        keys += (i ? "," : "") + (*node)[i]->getKey();
    return keys;
}

TEST(OrvaTreeNodeTest, AddSortsBehindEqualKeysAndInsertIgnoresOrder)
{
    Node root(new OrvaTreeNode("root"));
    Node firstA = root->add(new OrvaTreeNode("a"));
    root->add(new OrvaTreeNode("c"));
    root->add(new OrvaTreeNode("b"));
    Node secondA = root->add(new OrvaTreeNode("a"));
    EXPECT_EQ(keysOf(root, 4), "a,a,b,c");
    EXPECT_TRUE(root->getNode("a") == firstA && (*root)[1] == secondA);
    EXPECT_TRUE(root->getNode("A") == nullptr);

    root->insert(0, new OrvaTreeNode("z"));
    root->add(new OrvaTreeNode("y")); // stops at the first greater key, "z"
    EXPECT_EQ(keysOf(root, 6), "y,z,a,a,b,c");
    root->erase("a");
    root->erase(0);
    root->erase("none");
    EXPECT_EQ(keysOf(root, 4), "z,a,b,c");
    EXPECT_TRUE((*root)[1] == secondA);
    EXPECT_EQ(firstA->refCount(), 1); // only this test holds it now

    OrvaTreeNode copy(*root); // shares the children
    EXPECT_TRUE(copy.getNode("a") == secondA);
    EXPECT_EQ(secondA->refCount(), 3);
}

TEST(OrvaTreeNodeTest, PathsAreTrimmedUsedUpAndMakePlaceholders)
{
    Node root(new OrvaTreeNode);
    std::vector<std::string> path = {"x", " y ", "z"};
    Node leaf(new Folder("ignored"));
    EXPECT_TRUE(root->add(leaf, path) == leaf);
    EXPECT_TRUE(path.empty());
    EXPECT_EQ(leaf->getKey(), "z");

    EXPECT_TRUE(root->getNode(" x //y/ z ", "/") == leaf);
    path = {"x", "q", "z"};
    EXPECT_TRUE(root->getNode(path) == nullptr);
    EXPECT_EQ(path, std::vector<std::string>{"z"});
    path.clear();
    EXPECT_TRUE(root->getNode(path) == nullptr);

    // A key of delimiters only is an empty path: nothing happens.
    EXPECT_TRUE(root->add(new Folder("//"), "/") == nullptr);
    EXPECT_EQ(keysOf(root, 1), "x");
}

TEST(OrvaTreeNodeTest, PlaceholdersGiveWayToNewNodesAndClientNodesStay)
{
    Node root(new OrvaTreeNode);
    Node leaf = root->add(new Folder("a/b/c"), "/");
    Node placeholder = root->getNode("a/b", "/");
    Node folder(new Folder("a/b"));
    folder->add(new OrvaTreeNode("d"));

    EXPECT_TRUE(root->add(folder, "/") == folder);
    EXPECT_EQ(keysOf(folder, 2), "d,c"); // its own children first
    EXPECT_TRUE(root->getNode("a/b/c", "/") == leaf);
    EXPECT_TRUE(placeholder->getNode("c") == nullptr);
    EXPECT_EQ(placeholder->refCount(), 1);

    // The client's node stays.
    Node second(new Folder("a/b"));
    EXPECT_TRUE(root->add(second, "/") == folder);
    EXPECT_EQ(second->refCount(), 1);

    // A client's class named like the tree's own counts as a placeholder;
    // a placeholder added again where it stands gives its children up to
    // itself and loses them, and moves behind its siblings of the same key.
    Node mine = root->add(new MyOrvaTreeNode("a/m"), "/");
    Node other = root->add(new MyOrvaTreeNode("a/m"), "/");
    EXPECT_TRUE(other != mine && root->getNode("a/m", "/") == other);
    Node child = other->add(new OrvaTreeNode("n"));
    Node twin = root->getNode("a")->add(new Folder("m"));
    std::vector<std::string> path = {"a", "m"};
    EXPECT_TRUE(root->add(other, path) == other);
    EXPECT_TRUE(other->getNode("n") == nullptr);
    EXPECT_EQ(child->refCount(), 1);
    EXPECT_EQ(keysOf(root->getNode("a"), 3), "b,m,m");
    EXPECT_TRUE((*root->getNode("a"))[1] == twin && (*root->getNode("a"))[2] == other);
}

TEST(OrvaTreeNodeTest, PrintWritesOneIndentedRecordPerNodeAtLevelNineOnly)
{
    Node root(new OrvaTreeNode("r"));
    root->add(new OrvaTreeNode("a/b"), "/");
    root->add(new OrvaTreeNode("c"));
    for (int level : {8, 9})
    {
        ovkit_test::FileLog f(level);
        OrvaLogging::setInstance(f.log);
        root->print(1);
        std::vector<std::string> expected;
        if (level == 9)
            expected = {"    OrvaTreeNode::print: Key = r", "        OrvaTreeNode::print: Key = a",
                        "            OrvaTreeNode::print: Key = b", "        OrvaTreeNode::print: Key = c"};
        EXPECT_EQ(f.lines(true), expected) << level;
    }
}

} // namespace
