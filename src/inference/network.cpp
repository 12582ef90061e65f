#include "inference/network.h"

#include "platform/log.h"

std::map<ModelType, ModelTask> gModelTasks;

void StoreModelsPath(std::vector<AAssetManager*> managers, char const** paths,
                     std::vector<ModelType> types) {
    for (size_t i = 0; i < types.size(); ++i) {
        gModelTasks[types[i]] = ModelTask{std::string(paths[i]), managers[i]};
        LOGI("model %d : %s", static_cast<int>(i), paths[i]);
    }
}

int DataRead(AAssetManager*, std::string const&, char*&, int&) {
    return -1;
}

void Network::operator=(Network const& other) {
    modelType = other.GetModelType();
}

bool SetupModel(Network& net) {
    return net.SetupModel();
}
int RunModel(Network& net) {
    return net.RunModel();
}
void TearDownModel(Network& net) {
    net.TeardownModel();
}
int UnloadModel(Network& net) {
    return net.UnloadModel();
}
