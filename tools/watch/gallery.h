// SPDX-License-Identifier: Apache-2.0
// Faces that are known by name, in a file of SQLite that its owner alone may read: names, and features with the pictures
// that they come from. Features of another network mean something else, so a gallery keeps to the one that it was begun with.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "feature_index.h"

struct sqlite3;

namespace kelnn_cli {

struct Match {
  std::string name;
  float similarity;
};

// Faces in memory, to be compared with.
class KnownFaces {
 public:
  void add(const std::string& name, const kel_nn::Feature& feature);
  bool is_empty() const { return names_.empty(); }
  Match nearest(const kel_nn::Feature& feature) const;  // there must be one

 private:
  FeatureIndex index_;
  std::vector<std::string> names_;  // of the index's features
};

class Gallery {
 public:
  enum class Use { kRead, kWrite };  // kWrite: begun where there is none

  // `network`: the file of the model whose features are meant; none: names alone are wanted. A Failure for what is no
  // gallery, or another network's. What is added or removed is kept by keep(), all of it or nothing.
  Gallery(const std::string& path, Use use, const std::string& network = "");
  ~Gallery();

  // False: the very same face is there already.
  bool add(const std::string& name, const std::string& picture, const kel_nn::Feature& feature);
  int remove(const std::string& name);  // how many faces it had
  void keep();                          // once, when all is done

  // Names in order, how many faces of each.
  std::vector<std::pair<std::string, int>> people() const;
  KnownFaces faces() const;  // all of them

 private:
  class Statement;
  struct Close {
    void operator()(sqlite3* database) const;
  };

  struct Unkept {  // a file that was begun here, and goes if nothing is kept in it
    ~Unkept();
    std::string path;
  };

  void begin_or_check(Use use, const std::string& network);

  std::string path_;
  Unkept own_file_;
  std::unique_ptr<sqlite3, Close> database_;
};

std::string gallery_of_user();  // the file that is meant when none is named

}  // namespace kelnn_cli
