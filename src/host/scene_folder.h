#pragma once

// The folder of the scene file that made a node or last set one of its
// values, for nodes that name files relative to their scene (shapes keep
// their own; this serves the others, such as file textures). Empty when no
// script touched the node.

#include <string>

class TdependNode;

void OrvoSetNodeSceneFolder(const TdependNode* node, std::string folder);
std::string OrvoNodeSceneFolder(const TdependNode* node);
// Called as a node goes, so that a later node at the same address starts
// with no folder.
void OrvoForgetNodeSceneFolder(const TdependNode* node);
