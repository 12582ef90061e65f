// File names for what --out writes, one per frame: the input's file name
// (a video's or raw file's frame number appended), made unique when two
// inputs share a name (same file name in different folders).
#pragma once

#include <set>
#include <string>

class OutputNames {
  public:
    // A name not handed out before, for the frame called `frameName`
    // ("folder/file.jpg", "clip.mp4#12").
    std::string For(const std::string& frameName);

  private:
    std::set<std::string> used_;
};
